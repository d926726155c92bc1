#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

/// Why a request came to nothing, in a word that logs, counters and clients share. What each means to whoever
/// runs the daemon stands in docs/monitoring.md.
enum class ErrorClass : uint8_t {
    none,
    request,      ///< the request makes no sense
    file,         ///< the file cannot be opened or read
    object,       ///< the file is no object, or is broken or contradicts itself
    unsupported,  ///< an encoding that there is no decoder for
    decode,       ///< a frame cannot be decoded
    limit,        ///< a limit was hit
    memory,       ///< out of memory
    output,       ///< a file cannot be written
    exchange,     ///< the client went away or fell out of step
    crash,        ///< the servant died of it
    other,
};
inline constexpr size_t kErrorClasses = static_cast<size_t>(ErrorClass::other) + 1;

inline const char* nameOf(ErrorClass value) {
    constexpr const char* kNames[kErrorClasses] = {"none",        "request",  "file",  "object",
                                                   "unsupported", "decode",   "limit", "memory",
                                                   "output",      "exchange", "crash", "other"};
    return kNames[static_cast<size_t>(value)];
}

/// The class of that name; `other` for what is none.
inline ErrorClass errorClassNamed(std::string_view name) {
    for (size_t i = 0; i < kErrorClasses; ++i)
        if (name == nameOf(static_cast<ErrorClass>(i))) return static_cast<ErrorClass>(i);
    return ErrorClass::other;
}

/// A text that says why an object was refused, and the class of that.
struct RefusalText : std::string {
    // NOLINTBEGIN(google-explicit-constructor): most refusals are a text alone
    // cppcheck-suppress noExplicitConstructor
    RefusalText(std::string text, ErrorClass errorClass = ErrorClass::object)
        : std::string(std::move(text)), kind(errorClass) {}
    // cppcheck-suppress noExplicitConstructor
    RefusalText(const char* text) : std::string(text) {}
    // NOLINTEND(google-explicit-constructor)

    ErrorClass kind = ErrorClass::object;
};
