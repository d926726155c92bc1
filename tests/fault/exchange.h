#pragma once

#include <functional>
#include <string>

/// Makes a client's call; the name of the exception by which the exchange failed, empty when it did not. What
/// else the call throws goes on.
std::string failureOf(const std::function<void()>& call);
