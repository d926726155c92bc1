#pragma once

#include <string>

/// Builds a text of figures in Prometheus' format.
class FigureText {
public:
    /// `prefix` begins every name.
    explicit FigureText(std::string prefix) : m_prefix(std::move(prefix)) {}

    /// Says what a metric is: its type ("gauge", "counter" or "summary") and one sentence.
    void head(const char* name, const char* type, const char* help);
    /// A value of it; `series` is its name with labels.
    void value(const std::string& series, double number);
    /// A metric of one value.
    void single(const char* name, const char* type, const char* help, double number);

    const std::string& text() const { return m_text; }

private:
    std::string m_prefix;
    std::string m_text;
};
