#include "vintakd/config/configcheck.h"

#include <dirent.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>

#include "hsutils/Utils.h"
#include "hsutils/nearestname.h"
#include "vintakd/config/ConfigFile.h"

namespace {

const std::vector<std::string>& fileNames() {
    static const std::vector<std::string> names{"limits.conf", "log.conf", "thumbnail.conf",
                                                "jpeg2000lossy.conf", "include.conf"};
    return names;
}

/// The number that the whole of `text` is, but for `suffix` where that follows.
std::optional<double> numberIn(std::string text, const std::string& suffix = "") {
    if (!suffix.empty() && text.size() > suffix.size() &&
        text.compare(text.size() - suffix.size(), suffix.size(), suffix) == 0)
        text.resize(text.size() - suffix.size());
    char* end = nullptr;
    const double number = std::strtod(text.c_str(), &end);
    if (text.empty() || *end != '\0' || number != number) return std::nullopt;
    return number;
}

bool readLog(const char* folder, ConfigReport& report) {
    static constexpr char kFormat[] = "LOG_FORMAT";
    ConfigFile file(folder, "log.conf", report);
    file.takeEntries(
        [](const std::string& name) {
            return name == kFormat ? std::nullopt : std::optional<std::string>(kFormat);
        },
        [](const ConfigLine& line) -> std::optional<std::string> {
            if (line.value == "text" || line.value == "json") return std::nullopt;
            return "text or json is needed";
        });
    const ConfigLine* line = file.find(kFormat);
    file.hold(kFormat, line ? line->value : "text", line);
    return line && line->value == "json";
}

void checkThumbnails(const char* folder, ConfigReport& report) {
    const std::string all = "KELT_PERCENT", one = all + "_";
    ConfigFile file(folder, "thumbnail.conf", report);
    file.takeEntries(
        [&](const std::string& name) -> std::optional<std::string> {
            const bool ofModality = name.rfind(one, 0) == 0 && name.size() > one.size();
            if (name == all || ofModality) return std::nullopt;
            const size_t last = name.rfind('_');
            return nearestName(name, {all, one + (last == std::string::npos ? "MR" : name.substr(last + 1))});
        },
        [](const ConfigLine& line) -> std::optional<std::string> {
            if (numberIn(line.value, "t")) return std::nullopt;
            return "a number is needed, and a t behind it where it is of the thumbnail's own size";
        });
    if (!file.find(all)) file.hold(all, "1", nullptr);
    for (const ConfigLine& line : file.lines())
        if (file.find(line.name) == &line) file.hold(line.name, line.value, &line);
}

/// A Modality, or "Default".
bool isRateKey(const std::string& name) {
    return name == "Default" || std::all_of(name.begin(), name.end(), [](unsigned char c) {
               return std::isupper(c) != 0 || std::isdigit(c) != 0 || c == '_' || c == ' ';
           });
}

/// The reader wants no blanks around "=", and quotes: KEY="VALUE".
void checkLossyRates(const char* folder, ConfigReport& report) {
    constexpr size_t kLongestLine = 255;
    ConfigFile file(folder, "jpeg2000lossy.conf", report, kLongestLine);
    file.takeEntries(
        [](const std::string& name) {
            return isRateKey(name) ? std::nullopt : std::optional<std::string>("Default");
        },
        [](const ConfigLine& line) -> std::optional<std::string> {
            const std::string start = line.name + "=\"";
            if (line.text.rfind(start, 0) != 0 || line.text.size() <= start.size() || line.text.back() != '"')
                return "an entry is written KEY=\"VALUE\", without blanks around the =";
            const auto rate = numberIn(line.value);
            if (rate && *rate > 0 && *rate <= 1) return std::nullopt;
            return "a number above 0, at most 1, is needed";
        });
    if (!file.find("Default")) file.hold("Default", "0.1", nullptr);
    for (const ConfigLine& line : file.lines())
        if (file.find(line.name) == &line) file.hold(line.name, line.value, &line);
}

/// A list of private elements; behind a tag there may stand anything.
void checkTags(const char* folder, const std::string& name, ConfigReport& report) {
    constexpr size_t kLongestLine = 253;  // and its end: the reader takes 254 bytes at a time
    ConfigFile file(folder, name, report, kLongestLine);
    for (const ConfigLine& line : file.lines()) {
        unsigned group = 0, element = 0;
        int length = 0;
        // NOLINTNEXTLINE(cert-err34-c): four digits at most
        if (std::sscanf(line.text.c_str(), "(%4x,%4x)%n", &group, &element, &length) != 2 || length != 11) {
            file.refuse(line, "a tag is written (gggg,eeee), in hexadecimal");
            continue;
        }
        const std::string tag = line.text.substr(0, static_cast<size_t>(length));
        file.hold(tag, element == 0 ? "the group is kept" : "kept", &line);
        if (group % 2 == 0)
            report.notes.push_back(
                printable(file.at(line) + ": " + tag + " is no private element: it is kept in any case"));
    }
}

/// The folder itself, and files in it that somebody may have meant to be read.
void checkFolder(const char* folder, ConfigReport& report) {
    if (folder == nullptr) {
        report.notes.emplace_back("CONF is not set: every setting has its default");
        return;
    }
    DIR* directory = opendir(folder);
    if (directory == nullptr) {
        report.notes.push_back(printable(std::string("CONF is ") + folder + ": " + std::strerror(errno) +
                                         ": every setting has its default"));
        return;
    }
    std::vector<std::string> strangers;
    while (const dirent* entry = readdir(directory)) {
        const std::string name = entry->d_name;
        const size_t dot = name.rfind('.');
        const bool like = dot != std::string::npos && dot > 0 && name.compare(dot, 5, ".conf") == 0;
        if (like && std::find(fileNames().begin(), fileNames().end(), name) == fileNames().end())
            strangers.push_back(name);
    }
    closedir(directory);
    std::sort(strangers.begin(), strangers.end());
    for (const std::string& name : strangers)
        report.notes.push_back(
            printable(std::string(folder) + "/" + name +
                      " is not read; the nearest file that is: " + nearestName(name, fileNames())));
}

}  // namespace

Configuration checkConfiguration(const char* conf, const char* downloadHome) {
    Configuration configuration;
    ConfigReport& report = configuration.report;
    checkFolder(conf, report);
    configuration.limits = LimitValues::read(conf, report);
    configuration.logIsJson = readLog(conf, report);
    checkThumbnails(conf, report);
    checkLossyRates(conf, report);
    checkTags(conf, "include.conf", report);
    checkTags(downloadHome, "privtags.cfg", report);
    return configuration;
}
