#pragma once

#include <cstdint>
#include <string>

/// Times a scope and reports on standard output, indented by nesting. For single-threaded use.
class FunctionMeasurer {
public:
    /// Prints "name()"; `name` (may be null) must outlive the object.
    explicit FunctionMeasurer(const char* name);
    /// Prints the scope's time.
    ~FunctionMeasurer();
    FunctionMeasurer(const FunctionMeasurer&) = delete;
    FunctionMeasurer& operator=(const FunctionMeasurer&) = delete;

    /// Prints the time since construction in milliseconds, with `label` where it is not null.
    void measure(const char* label);
    /// Four blanks for every level of nesting.
    static std::string indent();

private:
    const char* m_name;
    int64_t m_start;
    static unsigned s_level;
};
