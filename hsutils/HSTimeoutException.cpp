#include "hsutils/HSTimeoutException.h"

HSTimeoutException::HSTimeoutException(int code, const std::string& message) : HSException(code, message) {}

void HSTimeoutException::toString(std::string& out) const {
    out = render("Timeout Exception");
}
