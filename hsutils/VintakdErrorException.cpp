#include "hsutils/VintakdErrorException.h"

VintakdErrorException::VintakdErrorException(const std::string& text) : m_text(text) {}
