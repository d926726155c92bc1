#pragma once

#include <string>

#include "vintakd/service/VintakRequest.h"

/// The bytes of a request, as a client sends them. Its texts have to fit their fields.
std::string requestBytes(const VintakRequest& request);
