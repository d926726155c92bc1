#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// A text that is no JSON; says what is wrong and at which byte.
class JsonError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// A value of a JSON text that somebody else wrote. Strict: all of RFC 8259 and nothing else, UTF-8 alone,
/// every member of an object once. Numbers that are whole and fit 64 bits are kept exactly.
class JsonValue {
public:
    enum class Kind : uint8_t { null, boolean, number, text, list, object };

    /// Reads a whole text. Arrays and objects may stand `depth` deep within each other. Throws JsonError.
    static JsonValue parse(std::string_view text, int depth = 16);

    Kind kind() const { return m_kind; }
    bool isObject() const { return m_kind == Kind::object; }
    /// The value, where it is of that kind.
    const std::string* text() const { return m_kind == Kind::text ? &m_text : nullptr; }
    std::optional<bool> boolean() const;
    std::optional<double> number() const;
    /// A number that is whole and fits, written without fraction and exponent.
    std::optional<int64_t> integer() const { return m_integer; }
    /// The elements of a list, else none.
    const std::vector<JsonValue>& elements() const { return m_elements; }
    /// The member of an object, nullptr where there is none.
    const JsonValue* member(std::string_view name) const;
    /// Names of an object's members, in their order.
    const std::vector<std::string>& names() const { return m_names; }

private:
    friend class JsonReader;

    Kind m_kind = Kind::null;
    double m_number = 0;  ///< of a boolean too
    std::optional<int64_t> m_integer;
    std::string m_text;
    std::vector<JsonValue> m_elements;  ///< of an object: the values
    std::vector<std::string> m_names;   ///< of an object
};
