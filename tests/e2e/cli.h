#pragma once

#include <map>
#include <sstream>

#include "tests/shared/daemon_process.h"
#include "tools/phantom/phantomobject.h"

/// A daemon, three files to convert (the last one no object) and the tool.
class CliTest : public testing::Test {
protected:
    CliTest() {
        writePhantom(m_folder / "a.dcm", {2, 16});
        writePhantom(m_folder / "b.dcm", {1, 16});
        writeFile(m_folder / "bad.dcm", "not an object");
    }

    /// `vintak convert` with --json: for each object its file name and what became of it.
    std::map<std::string, std::string> convert(std::vector<std::string> arguments, int status) {
        arguments.insert(arguments.begin(), {"convert", "--json"});
        const ProgramResult result = vintak(arguments);
        EXPECT_EQ(result.status, status) << result.errors;
        std::map<std::string, std::string> became;
        std::istringstream lines(m_json = result.output);
        for (std::string line; std::getline(lines, line);) {
            const std::string path = between(line, "{\"path\":\"", "\"");
            const std::string name = path.substr(path.rfind('/') + 1),
                              kind = between(line, "\"class\":\"", "\"");
            became[name] = between(line, "\"result\":\"", "\"") + (kind.empty() ? "" : " " + kind);
        }
        return became;
    }
    static std::string between(const std::string& text, const std::string& begin, const std::string& end) {
        const size_t at = text.find(begin);
        if (at == std::string::npos) return {};
        return text.substr(at + begin.size(), text.find(end, at + begin.size()) - at - begin.size());
    }

    ProgramResult vintak(const std::vector<std::string>& arguments) {
        return runProgram(VINTAK_BINARY, arguments, m_daemon.environment());
    }

    DaemonProcess m_daemon;
    TemporaryFolder m_folder;
    std::string m_json;
};

using Became = std::map<std::string, std::string>;
