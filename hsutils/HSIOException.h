#pragma once

#include "hsutils/HSException.h"

/// An input or output operation of a support class failed.
class HSIOException : public HSException {
public:
    HSIOException(int code, const std::string& message) : HSException(code, message) {}

    using HSException::toString;
    void toString(std::string& out) const override { out = render("IO Exception"); }
};
