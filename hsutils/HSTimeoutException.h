#pragma once

#include "hsutils/HSException.h"

/// An operation of a support class did not end in time.
class HSTimeoutException : public HSException {
public:
    HSTimeoutException(int code, const std::string& message) : HSException(code, message) {}

    using HSException::toString;
    void toString(std::string& out) const override { out = render("Timeout Exception"); }
};
