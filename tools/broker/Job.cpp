#include "tools/broker/Job.h"

#include <sys/random.h>

#include <array>
#include <cstdio>

#include "hsutils/jsontext.h"
#include "hsutils/jsonvalue.h"
#include "hsutils/utctime.h"
#include "hsutils/utf8.h"

namespace {

constexpr size_t kLongestMessage = 65536;  ///< bytes
constexpr size_t kLongestPath = 4095;
constexpr size_t kLongestName = 1024;
constexpr size_t kLongestPart = 240;  ///< a suffix of ours must fit
constexpr size_t kLongestId = 128;

std::string_view takePart(std::string_view& path) {
    const size_t slash = path.find('/');
    const std::string_view part = path.substr(0, slash);
    path = slash == std::string_view::npos ? std::string_view() : path.substr(slash + 1);
    return part;
}

void checkInput(const std::string& input) {
    if (!input.starts_with('/')) throw JobError("the input is no absolute path");
    if (input.size() > kLongestPath) throw JobError("the input's path is too long");
    std::string_view rest = std::string_view(input).substr(1);
    while (!rest.empty()) {
        const std::string_view part = takePart(rest);
        if (part.empty() || part == "." || part == "..")
            throw JobError("the input's path has an empty part, a . or a ..");
    }
    if (input.ends_with('/')) throw JobError("the input is a folder");
}

void checkName(const std::string& name) {
    if (name.empty() || name.size() > kLongestName) throw JobError("the name is empty or too long");
    if (name.ends_with('/')) throw JobError("the name ends in a /");
    std::string_view rest = name;
    while (!rest.empty()) {
        const std::string_view part = takePart(rest);
        if (part.empty()) throw JobError("the name has an empty part");
        if (part.starts_with('.')) throw JobError("a part of the name begins with a .");
        if (part.size() > kLongestPart) throw JobError("a part of the name is too long");
    }
}

void check(const Job& job) {
    if (job.id.empty() || job.id.size() > kLongestId) throw JobError("the id is empty or too long");
    for (const std::string* text : {&job.id, &job.input, &job.name, &job.submitted})
        if (text->find('\0') != std::string::npos) throw JobError("a text has a NUL in it");
    checkInput(job.input);
    checkName(job.name);
}

std::string textOf(const JsonValue& message, const char* name) {
    const JsonValue* member = message.member(name);
    if (!member || !member->text()) throw JobError(std::string("it has no text \"") + name + '"');
    return *member->text();
}

std::string newId() {
    std::array<unsigned char, 16> bytes{};
    if (getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size()))
        throw JobError("there are no random numbers to be had");
    std::string id;
    for (const unsigned char byte : bytes) {
        char digits[3];
        (void)snprintf(digits, sizeof digits, "%02x", byte);
        id += digits;
    }
    return id;
}

}  // namespace

Job makeJob(const std::string& input, const std::string& name) {
    if (!isUtf8(input) || !isUtf8(name)) throw JobError("its name is no UTF-8, so no message can have it");
    Job job{.id = newId(), .input = input, .name = name, .submitted = utcNow()};
    check(job);
    return job;
}

std::string jobText(const Job& job) {
    return "{\"schema\":1,\"id\":" + jsonText(job.id) + ",\"input\":" + jsonText(job.input) +
           ",\"name\":" + jsonText(job.name) + ",\"submitted\":" + jsonText(job.submitted) + "}";
}

Job parseJob(std::string_view message) {
    if (message.size() > kLongestMessage) throw JobError("the message is too long");
    try {
        const JsonValue value = JsonValue::parse(message);
        if (!value.isObject()) throw JobError("the message is no JSON object");
        const JsonValue* schema = value.member("schema");
        if (!schema || !schema->integer()) throw JobError("it has no number \"schema\"");
        if (schema->integer() != 1)
            throw JobError("its schema is " + std::to_string(*schema->integer()) + ", this worker knows 1");
        Job job{.id = textOf(value, "id"),
                .input = textOf(value, "input"),
                .name = textOf(value, "name"),
                .submitted = textOf(value, "submitted")};
        check(job);
        return job;
    } catch (const JsonError& error) {
        throw JobError(std::string("the message is no JSON: ") + error.what());
    }
}
