#pragma once

#include <string>

#include "imgproc/pbrcontent.h"

/// The text of the ".obsinfo" file, which tells the viewer what results of a study a content object makes
/// obsolete: all ("WHOLE"), or those that it names.
std::string obsoleteResults(const CPbRContent& content);
