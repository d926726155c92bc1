#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/oflog/oflog.h>

#include <string>

/// Gives every appender of the toolkit's log a layout that keeps each message on one line. `pattern` is one
/// of the framework's, for text; with `json` each message is an object on a line of its own instead.
void setLogFormat(const char* pattern, bool json);

/// `text`, a line that goes to standard error beside the log, as it is to look there.
std::string lineBesideLog(const std::string& text);

/// Whether the log is in JSON.
bool logIsJson();

/// The logger of the lines about requests, whose messages are members of a JSON object where the log is in
/// JSON.
OFLogger requestLogger();
