#pragma once

#include <string>

#include "tools/feeding/SpoolWork.h"

/// What became of an object, as the event file and the broker's exchange tell it: one JSON object in one
/// line, docs/schemas/event.json. `more` is put at its end: empty, or members that each begin with a comma.
std::string eventText(const SpoolObject& object, const WorkResult& result, const std::string& more = "");

/// Its word for what came of it: "converted", "incomplete" (with warnings), "submitted" or "failed".
const char* resultWord(const WorkResult& result);
