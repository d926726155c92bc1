#pragma once

#include <cstdarg>
#include <cstdio>
#include <iosfwd>
#include <string>

/// A programming error or a failed I/O inside a support class: a message and an integer code, rendered as one
/// line of text. Deliberately not a std::exception: callers that expect this family name it.
class HSException {
public:
    /// Longest message that the formatting constructors produce; what is longer is cut.
    static constexpr size_t kMaxFormattedLength = 1023;
    static constexpr int kDefaultCode = 1;

    /// Message "Unknown exception", code 1.
    HSException();
    /// Message "Unknown exception".
    explicit HSException(int code);
    /// printf-style message, code 1.
    explicit HSException(const char* format, ...) __attribute__((format(printf, 2, 3)));
    /// printf-style message.
    HSException(int code, const char* format, ...) __attribute__((format(printf, 3, 4)));
    /// The message is taken as it is, percent signs included.
    HSException(int code, const std::string& message);
    HSException(const HSException&) = default;
    HSException& operator=(const HSException&) = default;
    virtual ~HSException();

    /// Replaces `out` by the kind of the exception, its code in brackets and its message.
    virtual void toString(std::string& out) const;
    /// The same text in a new array that the caller releases with delete[].
    char* toString() const;
    /// Writes the text and a newline.
    void print(FILE* stream) const;
    /// Writes the text, an end of line, and flushes.
    void print(std::ostream& stream) const;

    const std::string& message() const { return m_message; }
    int code() const { return m_code; }

protected:
    /// Formats like vprintf, at most `maxFormattedLength` characters.
    static std::string formatMessage(const char* format, std::va_list arguments);
    /// "<kind>: [<code>] <message>"
    std::string render(const char* kind) const;

    std::string m_message;
    int m_code = kDefaultCode;
};
