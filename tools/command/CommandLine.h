#pragma once

#include <boost/program_options.hpp>
#include <stdexcept>
#include <string>
#include <vector>

/// A command line that makes no sense; the text says why.
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// The options of one subcommand. Every command has --help and --segment; "files" are the words without an
/// option.
class CommandLine {
public:
    /// `usage` is the line after "vintak ", `about` one or two sentences.
    CommandLine(std::string usage, std::string about);

    boost::program_options::options_description_easy_init addOptions() { return m_options.add_options(); }
    /// Words without an option go into `name`.
    void takeRestAs(const char* name) { m_rest = name; }

    /// Parses; false when help was asked for and has been printed. Throws UsageError.
    bool parse(const std::vector<std::string>& arguments);

    bool has(const char* name) const { return m_values.count(name) > 0; }
    template <typename T>
    T get(const char* name) const {
        return m_values[name].as<T>();
    }
    /// The words of a repeatable option, none when it was not given.
    std::vector<std::string> list(const char* name) const;
    /// The segment to talk to: --segment, else the environment variable VINTAKD_SEGMENT, else "vintakd".
    std::string segment() const;

private:
    void printHelp() const;

    std::string m_usage;
    std::string m_about;
    std::string m_rest;
    boost::program_options::options_description m_options;
    boost::program_options::variables_map m_values;
};
