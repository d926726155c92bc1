#include "hsutils/HSAssertionException.h"

HSAssertionException::HSAssertionException(const char* expression, long line, const char* file)
    : m_expression(expression), m_file(file), m_line(line), m_formatted(false) {
    m_message = placeOfCheck();
}

HSAssertionException::HSAssertionException(const char* expression, long line, const char* file,
                                           const char* format, ...)
    : m_expression(expression), m_file(file), m_line(line), m_formatted(true) {
    std::va_list arguments;
    va_start(arguments, format);
    m_message = formatMessage(format, arguments);
    va_end(arguments);
}

void HSAssertionException::toString(std::string& out) const {
    out = m_formatted ? placeOfCheck() + "\n" + m_message : m_message;
}

std::string HSAssertionException::placeOfCheck() const {
    return "ASSERT (" + m_expression + ") in " + m_file + " at line " + std::to_string(m_line) + ".";
}
