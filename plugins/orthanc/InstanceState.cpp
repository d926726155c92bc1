#include "plugins/orthanc/InstanceState.h"

#include <json/json.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <tuple>
#include <vector>

namespace fs = std::filesystem;

namespace {

/// The time of the last change of a name, zero where there is none.
std::tuple<int64_t, long> changeOf(const std::string& path) {
    struct stat status {};
    if (lstat(path.c_str(), &status) != 0) return {0, 0};
    return {status.st_ctim.tv_sec, status.st_ctim.tv_nsec};
}

bool exists(const std::string& path) {
    return changeOf(path) != std::tuple<int64_t, long>{0, 0};
}

/// The newest of a name's failures, "NAME", "NAME.1" and so on; empty for none.
std::string lastFailure(const std::string& base) {
    std::string last;
    for (int number = 0; number < 10000; ++number) {
        const std::string path = number == 0 ? base : base + "." + std::to_string(number);
        if (!exists(path)) break;
        last = path;
    }
    return last;
}

std::string causeIn(const std::string& reason) {
    std::ifstream file(reason);
    for (std::string line; std::getline(file, line);)
        if (line.rfind("cause: ", 0) == 0) return line.substr(7);
    return "";
}

std::vector<std::string> namesIn(const std::string& folder) {
    std::vector<std::string> names;
    std::error_code error;
    for (const fs::directory_entry& entry : fs::directory_iterator(folder, error))
        names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

}  // namespace

std::string stateOf(const Configuration& configuration, const std::string& id) {
    const std::string name = id + ".dcm", results = configuration.results + "/" + id;
    const std::string failure = lastFailure(configuration.spool + "/failed/" + name);
    Json::Value answer(Json::objectValue);
    answer["Results"] = Json::Value(Json::arrayValue);
    const std::vector<std::string> files = namesIn(results);
    for (const std::string& file : files)
        answer["Results"].append(configuration.url + "/" + id + "/" + file);

    constexpr const char* kOnTheWay[][2] = {{"/incoming/", "waiting"},
                                            {"/incoming/priority/", "waiting"},
                                            {"/working/", "working"},
                                            {"/retry/", "retry"}};
    for (const auto& [folder, state] : kOnTheWay)
        if (exists(configuration.spool + folder + name)) answer["State"] = state;
    if (!answer.isMember("State")) {
        if (!failure.empty() && changeOf(failure) > changeOf(results)) {
            answer["State"] = "failed";
            answer["Cause"] = causeIn(failure + ".reason.txt");
        } else if (!files.empty()) {
            answer["State"] = "done";
        } else {
            return "";
        }
    }
    Json::StreamWriterBuilder writer;
    writer["indentation"] = " ";
    return Json::writeString(writer, answer) + "\n";
}
