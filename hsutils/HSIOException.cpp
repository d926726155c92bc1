#include "hsutils/HSIOException.h"

HSIOException::HSIOException(int code, const std::string& message) : HSException(code, message) {}

void HSIOException::toString(std::string& out) const {
    out = render("IO Exception");
}
