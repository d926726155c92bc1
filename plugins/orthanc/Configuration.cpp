#include "plugins/orthanc/Configuration.h"

#include <json/json.h>

#include <memory>
#include <stdexcept>

namespace {

constexpr const char* kSection = "Vintakd";

void take(const Json::Value& value, const std::string& name, std::string& text) {
    if (!value.isString() || value.asString().empty() || (name != "Url" && value.asString()[0] != '/'))
        throw std::runtime_error(std::string(kSection) + ": \"" + name + "\" is to be " +
                                 (name == "Url" ? "a text" : "an absolute path"));
    text = value.asString();
    while (text.size() > 1 && text.back() == '/')
        text.pop_back();
}

void take(const Json::Value& value, const std::string& name, bool& flag) {
    if (!value.isBool())
        throw std::runtime_error(std::string(kSection) + ": \"" + name + "\" is to be true or false");
    flag = value.asBool();
}

}  // namespace

Configuration Configuration::read(const std::string& json) {
    Json::Value whole;
    std::string errors;
    const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
    if (!reader->parse(json.data(), json.data() + json.size(), &whole, &errors) || !whole.isObject())
        throw std::runtime_error("the configuration cannot be read: " + errors);
    Configuration result;
    if (!whole.isMember(kSection)) return result;
    const Json::Value& section = whole[kSection];
    if (!section.isObject()) throw std::runtime_error(std::string(kSection) + " is to be an object");
    for (const std::string& name : section.getMemberNames()) {
        const Json::Value& value = section[name];
        if (name == "Spool")
            take(value, name, result.spool);
        else if (name == "Results")
            take(value, name, result.results);
        else if (name == "Url")
            take(value, name, result.url);
        else if (name == "Priority")
            take(value, name, result.priority);
        else if (name == "Sync")
            take(value, name, result.sync);
        else
            throw std::runtime_error(std::string(kSection) + ": there is no setting \"" + name + "\"");
    }
    return result;
}
