#include "tools/broker/BrokerTable.h"

#include <limits>
#include <optional>

namespace {

std::optional<int64_t> integerOf(const amqp_field_value_t& value) {
    switch (value.kind) {
        case AMQP_FIELD_KIND_I8:
            return value.value.i8;
        case AMQP_FIELD_KIND_U8:
            return value.value.u8;
        case AMQP_FIELD_KIND_I16:
            return value.value.i16;
        case AMQP_FIELD_KIND_U16:
            return value.value.u16;
        case AMQP_FIELD_KIND_I32:
            return value.value.i32;
        case AMQP_FIELD_KIND_U32:
            return value.value.u32;
        case AMQP_FIELD_KIND_I64:
            return value.value.i64;
        case AMQP_FIELD_KIND_U64:
            if (value.value.u64 > static_cast<uint64_t>(std::numeric_limits<int64_t>::max()))
                return std::nullopt;
            return static_cast<int64_t>(value.value.u64);
        default:
            return std::nullopt;
    }
}

}  // namespace

amqp_bytes_t borrowed(const std::string& text) {
    return {text.size(), const_cast<char*>(text.data())};
}

std::string copyOf(const amqp_bytes_t& bytes) {
    return {static_cast<const char*>(bytes.bytes), bytes.len};
}

BrokerTable::BrokerTable(const BrokerHeaders& headers) {
    for (const auto& [name, value] : headers) {
        amqp_table_entry_t entry{};
        entry.key = borrowed(name);
        if (const auto* text = std::get_if<std::string>(&value)) {
            entry.value.kind = AMQP_FIELD_KIND_UTF8;
            entry.value.value.bytes = borrowed(*text);
        } else {
            entry.value.kind = AMQP_FIELD_KIND_I64;
            entry.value.value.i64 = std::get<int64_t>(value);
        }
        m_entries.push_back(entry);
    }
}

amqp_table_t BrokerTable::table() {
    return {static_cast<int>(m_entries.size()), m_entries.data()};
}

BrokerHeaders headersOf(const amqp_table_t& table) {
    BrokerHeaders headers;
    for (int i = 0; i < table.num_entries; ++i) {
        const amqp_table_entry_t& entry = table.entries[i];
        if (entry.value.kind == AMQP_FIELD_KIND_UTF8)
            headers[copyOf(entry.key)] = copyOf(entry.value.value.bytes);
        else if (const auto number = integerOf(entry.value))
            headers[copyOf(entry.key)] = *number;
    }
    return headers;
}
