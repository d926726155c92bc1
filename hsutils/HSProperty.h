#pragma once

#include <string>

/// One entry of a properties file: a name and a value, both copies of what they were made from.
class HSProperty {
public:
    /// Throws HSAssertionException ("str") when either is null.
    HSProperty(const char* name, const char* value);

    const char* name() const { return m_name.c_str(); }
    const char* value() const { return m_value.c_str(); }
    /// Throws HSAssertionException ("value") on null.
    void setValue(const char* value);

private:
    std::string m_name;
    std::string m_value;
};
