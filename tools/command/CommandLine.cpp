#include "tools/command/CommandLine.h"

#include <cstdlib>
#include <iostream>
#include <utility>

namespace po = boost::program_options;

CommandLine::CommandLine(std::string usage, std::string about)
    : m_usage(std::move(usage)), m_about(std::move(about)), m_options("Options") {
    m_options.add_options()("help,h", "show this help")(
        "segment", po::value<std::string>(),
        "name of the daemon's segment (default: the environment "
        "variable VINTAKD_SEGMENT, else vintakd)");
}

bool CommandLine::parse(const std::vector<std::string>& arguments) {
    try {
        po::options_description all;
        all.add(m_options);
        po::positional_options_description positions;
        if (!m_rest.empty()) {
            all.add_options()(m_rest.c_str(), po::value<std::vector<std::string>>());
            positions.add(m_rest.c_str(), -1);
        }
        po::store(po::command_line_parser(arguments).options(all).positional(positions).run(), m_values);
        po::notify(m_values);
    } catch (const po::error& error) {
        throw UsageError(error.what());
    }
    if (!has("help")) return true;
    printHelp();
    return false;
}

void CommandLine::printHelp() const {
    std::cout << "Usage: vintak " << m_usage << "\n\n" << m_about << "\n\n" << m_options << std::flush;
}

std::vector<std::string> CommandLine::list(const char* name) const {
    return has(name) ? get<std::vector<std::string>>(name) : std::vector<std::string>{};
}

std::string CommandLine::segment() const {
    if (has("segment")) return get<std::string>("segment");
    const char* name = getenv("VINTAKD_SEGMENT");
    return name && *name ? name : "vintakd";
}
