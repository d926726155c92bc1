#include "hsutils/HSException.h"

#include <cstring>
#include <ostream>

namespace {
constexpr const char* kUnknownMessage = "Unknown exception";
}

HSException::HSException() : m_message(kUnknownMessage) {}

HSException::HSException(int code) : m_message(kUnknownMessage), m_code(code) {}

HSException::HSException(const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    m_message = formatMessage(format, arguments);
    va_end(arguments);
}

HSException::HSException(int code, const char* format, ...) : m_code(code) {
    std::va_list arguments;
    va_start(arguments, format);
    m_message = formatMessage(format, arguments);
    va_end(arguments);
}

HSException::HSException(int code, const std::string& message) : m_message(message), m_code(code) {}

HSException::~HSException() = default;

void HSException::toString(std::string& out) const {
    out = render("Unknown Exception");
}

char* HSException::toString() const {
    std::string text;
    toString(text);
    char* copy = new char[text.size() + 1];
    std::memcpy(copy, text.c_str(), text.size() + 1);
    return copy;
}

void HSException::print(FILE* stream) const {
    std::string text;
    toString(text);
    std::fprintf(stream, "%s\n", text.c_str());
}

void HSException::print(std::ostream& stream) const {
    std::string text;
    toString(text);
    stream << text << std::endl;
}

std::string HSException::formatMessage(const char* format, std::va_list arguments) {
    char buffer[kMaxFormattedLength + 1];
    if (std::vsnprintf(buffer, sizeof buffer, format, arguments) < 0) return {};
    return buffer;
}

std::string HSException::render(const char* kind) const {
    return std::string(kind) + ": [" + std::to_string(m_code) + "] " + m_message;
}
