#pragma once

#include <string>

#include "plugins/orthanc/Configuration.h"

/// Where an instance is on its way through the spool, as JSON; empty when nobody knows it:
///   {"State": "waiting" | "working" | "retry" | "failed" | "done", "Cause": "...", "Results":
///   ["/images/ID/object.desc", ...]}
/// An instance that was sent again and is on its way still has the results of the version before. Only looks
/// at names in folders; `id` must be one of Orthanc's.
std::string stateOf(const Configuration& configuration, const std::string& id);
