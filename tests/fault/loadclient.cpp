#include "tests/fault/loadclient.h"

#include <algorithm>
#include <random>
#include <sstream>

#include "tools/phantom/phantomobject.h"

namespace {

long milliseconds(Clock::duration duration) {
    return static_cast<long>(std::chrono::duration_cast<std::chrono::milliseconds>(duration).count());
}

std::unique_ptr<OpenGateway> attach(const std::string& segment, bool impatient) {
    for (;;) {
        try {
            auto gateway = std::make_unique<OpenGateway>(segment.c_str());
            gateway->setTimeout(impatient ? 2000 : 20000, false);
            return gateway;
        } catch (const SharedMemoryDoesNotExistsException&) {
            usleep(1000);
        }
    }
}

}  // namespace

LoadClient::LoadClient(const TemporaryFolder& folder, unsigned number, Gateway& undisturbed)
    : m_object(folder / ("object" + std::to_string(number))),
      m_output(folder / ("output" + std::to_string(number))) {
    writePhantom(m_object, {1 + number % 3, 32 + 8 * number});
    removeFiles();
    for (const Kind kind : {query, dump, conversion})
        m_answers[kind] = request(kind).send(undisturbed);
    m_files = files();
}

TestRequest LoadClient::request(Kind kind) const {
    TestRequest request{.input = m_object};
    request.writeMask = 3;  // every file that there is
    if (kind == conversion) request.output = request.cache = m_output + "/o";
    if (kind == query) request.tags = {0x0008, 0x0018, 0x0028, 0x0010, 0x0020, 0x0052};
    request.verbose = request.dumponly = kind == dump;
    return request;
}

void LoadClient::removeFiles() const {
    std::filesystem::remove_all(m_output);
    std::filesystem::create_directory(m_output);
}

std::map<std::string, std::string> LoadClient::files() const {
    std::map<std::string, std::string> files;
    for (const auto& entry : std::filesystem::directory_iterator(m_output))
        files[entry.path().filename()] = readFile(entry.path());
    return files;
}

void LoadClient::call(Gateway& gateway, Kind kind, LoadReport& report) const {
    if (kind == conversion) removeFiles();
    const auto start = Clock::now();
    try {
        std::string answer;
        const bool failed = !failureOf([&] { answer = request(kind).send(gateway); }).empty();
        failed ? ++report.exceptions : ++report.answers;
        report.answersSinceException = failed ? 0 : report.answersSinceException + 1;
        if (!failed && answer != m_answers[kind])
            report.mistakes += "wrong answer: " + answer.substr(0, 200) + "; ";
        if (!failed && kind == conversion && files() != m_files)
            report.mistakes += "wrong files in " + m_output + "; ";
    } catch (const VintakdErrorException& error) {
        report.mistakes += "error answer: " + error.text() + "; ";  // there is nothing wrong with the object
    }
    report.slowest = std::max(report.slowest, milliseconds(Clock::now() - start));
}

LoadReport LoadClient::run(const std::string& segment, const SharedFlag& stop, unsigned seed,
                           bool reattach) const {
    std::mt19937 random(seed);
    LoadReport report;
    std::unique_ptr<OpenGateway> gateway = attach(segment, reattach);
    while (!stop.isSet() || report.answersSinceException == 0) {
        const unsigned number = random() % 10;
        const long exceptions = report.exceptions;
        call(*gateway, number < 5 ? query : number < 7 ? dump : conversion, report);
        if (reattach && report.exceptions > exceptions) gateway = attach(segment, reattach);
    }
    return report;
}

Child LoadClient::start(const std::string& segment, const SharedFlag& stop, unsigned seed,
                        bool reattach) const {
    return Child([&, seed, reattach] {
        const LoadReport report = run(segment, stop, seed, reattach);
        return std::to_string(report.answers) + " " + std::to_string(report.exceptions) + " " +
               std::to_string(report.slowest) + " " + report.mistakes.substr(0, 2000);
    });
}

std::optional<LoadReport> LoadClient::report(Child& child, Clock::time_point limit) {
    const std::optional<std::string> text = child.text(limit);
    if (!text) return std::nullopt;
    LoadReport report;
    std::istringstream words(*text);
    words >> report.answers >> report.exceptions >> report.slowest;
    if (!words) {
        report.mistakes = *text;
    } else {
        words.get();
        std::getline(words, report.mistakes, '\0');
    }
    return report;
}
