#include "hsutils/jsonvalue.h"

#include <algorithm>
#include <charconv>
#include <cmath>

#include "hsutils/utf8.h"

/// One text, read once from its beginning to its end.
class JsonReader {
public:
    JsonReader(std::string_view text, int depth) : m_text(text), m_depth(depth) {}

    JsonValue whole() {
        JsonValue value = read();
        skipBlanks();
        if (m_at < m_text.size()) fail("something follows the value");
        return value;
    }

private:
    [[noreturn]] void fail(const std::string& what) const {
        throw JsonError(what + " at byte " + std::to_string(m_at));
    }
    char next() const { return m_at < m_text.size() ? m_text[m_at] : '\0'; }
    bool take(char character) {
        if (m_at >= m_text.size() || m_text[m_at] != character) return false;
        ++m_at;
        return true;
    }
    void skipBlanks() { m_at = std::min(m_text.find_first_not_of(" \t\r\n", m_at), m_text.size()); }

    JsonValue read() {
        skipBlanks();
        if (m_at >= m_text.size()) fail("the text ends early");
        switch (next()) {
            case '{':
                return nested([this](JsonValue& value) { readObject(value); });
            case '[':
                return nested([this](JsonValue& value) { readList(value); });
            case '"': {
                JsonValue value;
                value.m_kind = JsonValue::Kind::text;
                value.m_text = readText();
                return value;
            }
            case 't':
                return word("true", JsonValue::Kind::boolean, 1);
            case 'f':
                return word("false", JsonValue::Kind::boolean, 0);
            case 'n':
                return word("null", JsonValue::Kind::null, 0);
            default:
                return readNumber();
        }
    }

    template <typename Read>
    JsonValue nested(const Read& readInto) {
        if (m_depth == 0) fail("too deeply nested");
        --m_depth;
        ++m_at;
        JsonValue value;
        readInto(value);
        ++m_depth;
        return value;
    }

    void readList(JsonValue& value) {
        value.m_kind = JsonValue::Kind::list;
        skipBlanks();
        if (take(']')) return;
        do {
            value.m_elements.push_back(read());
            skipBlanks();
        } while (take(','));
        if (!take(']')) fail("a list does not end");
    }

    void readObject(JsonValue& value) {
        value.m_kind = JsonValue::Kind::object;
        skipBlanks();
        if (take('}')) return;
        do {
            skipBlanks();
            if (next() != '"') fail("a member has no name");
            std::string name = readText();
            if (value.member(name)) fail("a member comes twice");
            skipBlanks();
            if (!take(':')) fail("a member has no value");
            // The name goes in with its value: member() counts on that.
            JsonValue read = this->read();
            value.m_names.push_back(std::move(name));
            value.m_elements.push_back(std::move(read));
            skipBlanks();
        } while (take(','));
        if (!take('}')) fail("an object does not end");
    }

    JsonValue word(std::string_view word, JsonValue::Kind kind, double number) {
        if (m_text.substr(m_at, word.size()) != word) fail("no value");
        m_at += word.size();
        JsonValue value;
        value.m_kind = kind;
        value.m_number = number;
        return value;
    }

    size_t skipDigits() {
        const size_t begin = m_at;
        while (next() >= '0' && next() <= '9')
            ++m_at;
        return m_at - begin;
    }

    JsonValue readNumber() {
        const size_t begin = m_at;
        take('-');
        const bool leadingZero = next() == '0';
        const size_t digits = skipDigits();
        if (digits == 0 || (leadingZero && digits > 1)) fail("no value");
        const size_t wholePart = m_at;
        if (take('.') && skipDigits() == 0) fail("a number without its fraction");
        if (take('e') || take('E')) {
            if (!take('-')) take('+');
            if (skipDigits() == 0) fail("a number without its exponent");
        }
        const char* const first = m_text.data() + begin;
        const char* const last = m_text.data() + m_at;
        JsonValue value;
        value.m_kind = JsonValue::Kind::number;
        if (std::from_chars(first, last, value.m_number).ec != std::errc()) fail("a number out of range");
        int64_t integer = 0;
        if (wholePart == m_at && std::from_chars(first, last, integer).ec == std::errc())
            value.m_integer = integer;
        return value;
    }

    std::string readText() {
        std::string text;
        for (++m_at;;) {
            if (m_at >= m_text.size()) fail("a text does not end");
            const size_t length = utf8SequenceLength(m_text, m_at);
            if (length == 0) fail("bytes that are no UTF-8");
            if (take('"')) return text;
            if (take('\\')) {
                readEscape(text);
                continue;
            }
            if (static_cast<unsigned char>(m_text[m_at]) < 0x20) fail("a control character");
            text += m_text.substr(m_at, length);
            m_at += length;
        }
    }

    void readEscape(std::string& text) {
        constexpr std::string_view kLetters = "\"\\/bfnrt", kMeanings = "\"\\/\b\f\n\r\t";
        if (take('u')) return appendUtf8(text, readCodePoint());
        const size_t letter = m_at < m_text.size() ? kLetters.find(m_text[m_at]) : std::string_view::npos;
        if (letter == std::string_view::npos) fail("an unknown escape");
        ++m_at;
        text += kMeanings[letter];
    }

    unsigned readUnit() {
        const std::string_view digits = m_text.substr(std::min(m_at, m_text.size()), 4);
        unsigned unit = 0;
        const auto read = std::from_chars(digits.data(), digits.data() + digits.size(), unit, 16);
        if (digits.size() < 4 || read.ec != std::errc() || read.ptr != digits.data() + 4)
            fail("an unknown escape");
        m_at += 4;
        return unit;
    }

    unsigned readCodePoint() {
        const unsigned first = readUnit();
        if (first < 0xD800 || first > 0xDFFF) return first;
        if (first > 0xDBFF || !take('\\') || !take('u')) fail("half a surrogate pair");
        const unsigned second = readUnit();
        if (second < 0xDC00 || second > 0xDFFF) fail("half a surrogate pair");
        return 0x10000 + ((first - 0xD800) << 10) + (second - 0xDC00);
    }

    std::string_view m_text;
    size_t m_at = 0;
    int m_depth;
};

JsonValue JsonValue::parse(std::string_view text, int depth) {
    return JsonReader(text, depth).whole();
}

std::optional<bool> JsonValue::boolean() const {
    if (m_kind != Kind::boolean) return std::nullopt;
    return m_number != 0;
}

std::optional<double> JsonValue::number() const {
    if (m_kind != Kind::number) return std::nullopt;
    return m_number;
}

const JsonValue* JsonValue::member(std::string_view name) const {
    const auto found = std::find(m_names.begin(), m_names.end(), name);
    return found == m_names.end() ? nullptr : &m_elements[static_cast<size_t>(found - m_names.begin())];
}
