#pragma once

#include <string>
#include <utility>

#include "hsutils/VintakdErrorException.h"
#include "hsutils/errorclass.h"

/// A failed request: the text for the client, and the class of the error for logs, counters and the clients
/// that ask for it.
class ClassedError : public VintakdErrorException {
public:
    ClassedError(std::string text, ErrorClass kind) : VintakdErrorException(std::move(text)), m_kind(kind) {}

    ErrorClass kind() const { return m_kind; }

private:
    ErrorClass m_kind;
};
