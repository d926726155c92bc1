#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/oflog/oflog.h>

/// Gives every appender of the toolkit's log a layout that keeps each message on one line. `pattern` is one
/// of the framework's, for text; with `json` each message is an object on a line of its own instead.
void setLogFormat(const char* pattern, bool json);

/// Whether the log is in JSON.
bool logIsJson();

/// The logger of the lines about requests, whose messages are members of a JSON object where the log is in
/// JSON.
OFLogger requestLogger();
