#pragma once

#include <string>

/// Replaces a file by renaming, so that a reader always finds a whole one; any account may read it. False
/// with errno where that fails; nothing stays of it then.
bool replaceFile(const std::string& path, const std::string& text);
