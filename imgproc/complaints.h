#pragma once

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "hsutils/errorclass.h"

/// What is wrong with an object: why it came to nothing, and what its results lack.
class Complaints {
public:
    /// Keeps the first cause of the failure, and its class: it explains the rest.
    void fail(std::string cause, ErrorClass kind) {
        if (!m_cause.empty()) return;
        m_cause = std::move(cause);
        m_class = kind;
    }
    /// Keeps `text`, once, for whoever must not take the results for all that the object holds.
    void warn(const std::string& text) {
        if (std::find(m_warnings.begin(), m_warnings.end(), text) == m_warnings.end())
            m_warnings.push_back(text);
    }

    const std::string& cause() const { return m_cause; }
    ErrorClass kind() const { return m_class; }
    const std::vector<std::string>& warnings() const { return m_warnings; }

private:
    std::string m_cause;
    ErrorClass m_class = ErrorClass::object;
    std::vector<std::string> m_warnings;
};
