#include "tools/vintak/ConvertReport.h"

#include <cstdio>

#include "hsutils/jsontext.h"

namespace {

std::string seconds(double value) {
    char text[48];
    (void)snprintf(text, sizeof text, "%.6f", value);
    return text;
}

std::string hexadecimal(const std::string& bytes) {
    constexpr const char* kDigits = "0123456789abcdef";
    std::string text;
    for (const char byte : bytes) {
        text += kDigits[static_cast<unsigned char>(byte) >> 4];
        text += kDigits[static_cast<unsigned char>(byte) & 15];
    }
    return text;
}

/// What no JSON text can hold stands beside it, so that nothing is lost.
std::string pathEntry(const std::string& name, const std::string& path) {
    const std::string text = jsonText(path);
    const bool isChanged =
        text.find("\xEF\xBF\xBD") != std::string::npos && path.find("\xEF\xBF\xBD") == std::string::npos;
    return '"' + name + "\":" + text +
           (isChanged ? ",\"" + name + "Bytes\":\"" + hexadecimal(path) + '"' : "");
}

std::string list(const std::string& name, const std::vector<std::string>& entries) {
    std::string text = ",\"" + name + "\":[";
    for (size_t i = 0; i < entries.size(); ++i)
        text += (i > 0 ? "," : "") + entries[i];
    return text + "]";
}

}  // namespace

void ConvertReport::converted(const ConversionJob& job, const Outcome& outcome, const ConversionTime& time) {
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        ++m_converted;
        if (!outcome.warnings.empty()) ++m_warned;
    }
    if (outcome.warnings.empty())
        m_progress.succeeded();
    else
        m_progress.warned(job.object.path, outcome.warnings);
    printJson(job, outcome.warnings.empty() ? "converted" : "incomplete", outcome, time, {});
}

void ConvertReport::skipped(const ConversionJob& job) {
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        ++m_skipped;
    }
    m_progress.skipped();
    printJson(job, "skipped", {.done = true, .text = {}}, {}, {});
}

void ConvertReport::failed(const ConversionJob& job, const Outcome& outcome, const ConversionTime& time,
                           const std::string& movedTo) {
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        ++m_failed;
        if (outcome.kind == ErrorClass::limit || outcome.kind == ErrorClass::memory) ++m_refused;
        if (outcome.kind == ErrorClass::unsupported) ++m_unsupported;
    }
    m_progress.failed(job.object.path, outcome.text);
    printJson(job, "failed", outcome, time, movedTo);
}

void ConvertReport::left(const FoundObject& object) {
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        ++m_left;
    }
    printJson({.object = object, .request = {}}, "left", {.text = {}}, {}, {});
}

void ConvertReport::printJson(const ConversionJob& job, const char* result, const Outcome& outcome,
                              const ConversionTime& time, const std::string& movedTo) {
    if (!m_json) return;
    std::string line = "{" + pathEntry("path", job.object.path) + ",\"result\":\"" + result + '"';
    if (outcome.kind != ErrorClass::none)
        line +=
            std::string(",\"class\":\"") + nameOf(outcome.kind) + "\",\"cause\":" + jsonText(outcome.text);
    std::vector<std::string> outputs, warnings;
    if (outcome.done)
        for (const ResultFile& file : resultsOf(job.request))
            outputs.push_back("{" + pathEntry("path", file.path) + ",\"size\":" + std::to_string(file.size) +
                              "}");
    for (const std::string& warning : outcome.warnings)
        warnings.push_back(jsonText(warning));
    line += list("outputs", outputs) + list("warnings", warnings);
    if (time.start > 0) line += ",\"start\":" + seconds(time.start) + ",\"seconds\":" + seconds(time.seconds);
    if (!movedTo.empty()) line += "," + pathEntry("movedTo", movedTo);
    line += "}\n";
    const std::lock_guard<std::mutex> lock(m_mutex);
    fputs(line.c_str(), stdout);
    (void)fflush(stdout);
}

std::string ConvertReport::summary() const {
    std::string text = std::to_string(m_converted) + " converted";
    if (m_warned > 0) text += " (" + std::to_string(m_warned) + " with warnings)";
    text += ", " + std::to_string(m_failed) + " failed";
    if (m_skipped > 0) text += ", " + std::to_string(m_skipped) + " skipped";
    return text;
}

ExitCode ConvertReport::exitCode() const {
    if (m_left > 0) return kInterrupted;
    if (m_failed == 0) return m_warned > 0 ? kSomeFailed : kAllDone;
    if (m_failed < objects()) return kSomeFailed;
    if (m_refused == m_failed) return kRefused;
    return m_unsupported == m_failed ? kUnsupported : kAllFailed;
}
