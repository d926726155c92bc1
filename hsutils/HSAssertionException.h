#pragma once

#include "hsutils/HSException.h"

/// A precondition of a support class that did not hold, with the place where it was checked. The code is
/// always 1.
class HSAssertionException : public HSException {
public:
    /// The message is the line that names the expression and the place of the check.
    HSAssertionException(const char* expression, long line, const char* file);
    /// The thrower's own printf-style message; the place of the check is put before it when it is rendered.
    HSAssertionException(const char* expression, long line, const char* file, const char* format, ...)
        __attribute__((format(printf, 5, 6)));

    using HSException::toString;
    void toString(std::string& out) const override;

    const std::string& expression() const { return m_expression; }
    const std::string& file() const { return m_file; }
    long line() const { return m_line; }

private:
    std::string placeOfCheck() const;

    std::string m_expression;
    std::string m_file;
    long m_line;
    bool m_formatted;
};

/// Throws an HSAssertionException that names the condition when it does not hold.
#define HS_ASSERT_NOT_NULL(parameter) \
    ((parameter) != nullptr ? void() : throw HSAssertionException(#parameter, __LINE__, __FILE__))
