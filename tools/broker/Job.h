#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

/// A message that is no job; the text says why.
class JobError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// One object to convert, as it travels through a broker: docs/schemas/job.json.
struct Job {
    std::string id;         ///< unlike that of every other job
    std::string input;      ///< the object's file as workers see it: absolute, without "." and ".."
    std::string name;       ///< of the results, below the workers' folder: "FOLDER/.../NAME"
    std::string submitted;  ///< when, in UTC

    bool operator==(const Job&) const = default;
};

/// A job for a file, with an id of its own and the time of now. Throws JobError for names that cannot be used
/// (see parseJob) or that are no UTF-8.
Job makeJob(const std::string& input, const std::string& name);

/// The message.
std::string jobText(const Job& job);

/// Reads a message that anybody may have sent. Throws JobError. What it returns has an absolute input without
/// "..", and a name that stays below any folder: relative, of parts that do not begin with a '.'.
Job parseJob(std::string_view message);
