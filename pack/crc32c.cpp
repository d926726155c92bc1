#include "pack/crc32c.h"

#include <nmmintrin.h>

#include <array>
#include <cstring>

namespace pack {
namespace {

constexpr uint32_t kPolynomial = 0x82F63B78;  // bits turned round

constexpr std::array<uint32_t, 256> makeTable() {
    std::array<uint32_t, 256> table{};
    for (uint32_t i = 0; i < table.size(); ++i) {
        uint32_t sum = i;
        for (int bit = 0; bit < 8; ++bit)
            sum = sum >> 1 ^ ((sum & 1) != 0 ? kPolynomial : 0);
        table[i] = sum;
    }
    return table;
}
constexpr std::array<uint32_t, 256> kTable = makeTable();

uint32_t plain(std::span<const uint8_t> bytes, uint32_t sum) {
    for (const uint8_t byte : bytes)
        sum = sum >> 8 ^ kTable[(sum ^ byte) & 0xFF];
    return sum;
}

__attribute__((target("sse4.2"))) uint32_t byInstruction(std::span<const uint8_t> bytes, uint32_t sum) {
    while (bytes.size() >= sizeof(uint64_t)) {
        uint64_t word = 0;
        std::memcpy(&word, bytes.data(), sizeof word);
        sum = static_cast<uint32_t>(_mm_crc32_u64(sum, word));
        bytes = bytes.subspan(sizeof word);
    }
    for (const uint8_t byte : bytes)
        sum = _mm_crc32_u8(sum, byte);
    return sum;
}

}  // namespace

uint32_t crc32c(std::span<const uint8_t> bytes, uint32_t before) {
    static const bool s_hasInstruction = __builtin_cpu_supports("sse4.2") != 0;
    return ~(s_hasInstruction ? byInstruction(bytes, ~before) : plain(bytes, ~before));
}

}  // namespace pack
