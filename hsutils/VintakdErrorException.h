#pragma once

#include <string>
#include <utility>

/// The text of a failed conversion on its way to the client: thrown in the servant, sent as the error answer,
/// thrown again by the client call with the received text. Caught by value type; carries nothing but the
/// text.
class VintakdErrorException {
public:
    explicit VintakdErrorException(std::string text) : m_text(std::move(text)) {}

    const std::string& text() const { return m_text; }

private:
    std::string m_text;
};
