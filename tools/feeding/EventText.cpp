#include "tools/feeding/EventText.h"

#include <cstdio>

#include "hsutils/jsontext.h"
#include "hsutils/utctime.h"

namespace {

std::string entry(const char* name, const std::string& text) {
    return std::string(",\"") + name + "\":" + jsonText(text);
}

}  // namespace

const char* resultWord(const WorkResult& result) {
    switch (result.kind) {
        case WorkResult::Kind::done:
            return result.warnings.empty() ? "converted" : "incomplete";
        case WorkResult::Kind::submitted:
            return "submitted";
        default:
            return "failed";
    }
}

std::string eventText(const SpoolObject& object, const WorkResult& result, const std::string& more) {
    std::string line = "{\"schema\":1,\"time\":\"" + utcNow() + "\",\"result\":\"" + resultWord(result) + '"';
    line += entry("name", object.name) +
            entry("version", result.version.empty() ? object.version() : result.version) +
            entry("study", result.study) + entry("series", result.series) + entry("object", result.object);
    line += ",\"outputs\":[";
    for (size_t i = 0; i < result.outputs.size(); ++i)
        line += (i > 0 ? ",{\"path\":" : "{\"path\":") + jsonText(result.outputs[i].path) +
                ",\"size\":" + std::to_string(result.outputs[i].size) + "}";
    line += "],\"warnings\":[";
    for (size_t i = 0; i < result.warnings.size(); ++i)
        line += (i > 0 ? "," : "") + jsonText(result.warnings[i]);
    char seconds[48];
    (void)snprintf(seconds, sizeof seconds, "],\"seconds\":%.6f", result.seconds);
    line += seconds;
    if (!result.job.empty()) line += entry("job", result.job);
    if (result.kind != WorkResult::Kind::done && result.kind != WorkResult::Kind::submitted)
        line += entry("class", nameOf(result.errorClass)) + entry("cause", result.cause);
    return line + more + "}";
}
