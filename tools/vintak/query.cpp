#include <algorithm>
#include <cstdio>

#include "hsutils/Utils.h"
#include "tools/command/CommandLine.h"
#include "tools/command/Session.h"
#include "tools/exitcodes.h"
#include "tools/vintak/TagArgument.h"
#include "tools/vintak/Utf8.h"
#include "tools/vintak/commands.h"

namespace po = boost::program_options;

namespace {

std::vector<TagArgument> parseTags(const std::vector<std::string>& words) {
    std::vector<TagArgument> tags;
    for (const std::string& word : words)
        tags.push_back(TagArgument::parse(word));
    return tags;
}

/// The values of some tags in one file, in the order of the tags.
struct FileValues {
    std::string characterSet;
    std::vector<std::string> values;
};

class Query {
public:
    explicit Query(Session& session) : m_session(session) {}

    /// Throws nothing but NoDaemon; false with the cause in `cause`.
    bool read(const std::string& file, const std::vector<TagArgument>& tags, FileValues& result,
              std::string& cause) {
        result.values.clear();
        if (tags.empty()) return true;
        Outcome outcome = ask(file, tags);
        if (outcome.done && !split(outcome.text, tags.size(), result.values)) {
            // A value holds a separator: ask for each by itself, where the last one ends the value.
            for (const TagArgument& tag : tags) {
                outcome = ask(file, {tag});
                if (!outcome.done) break;
                result.values.push_back(outcome.text.substr(0, outcome.text.rfind(';')));
            }
        }
        result.characterSet = outcome.characterSet;
        if (!outcome.done) cause = outcome.text;
        return outcome.done;
    }

private:
    Outcome ask(const std::string& file, const std::vector<TagArgument>& tags) {
        Request request;
        request.inputFile = absolutePath(file);
        request.dumponly = true;
        for (const TagArgument& tag : tags) {
            request.tags.push_back(tag.group);
            request.tags.push_back(tag.element);
        }
        return m_session.ask(request);
    }

    static bool split(const std::string& text, size_t count, std::vector<std::string>& values) {
        if (static_cast<size_t>(std::count(text.begin(), text.end(), ';')) != count) return false;
        for (size_t start = 0; start < text.size();) {
            const size_t end = text.find(';', start);
            values.push_back(text.substr(start, end - start));
            start = end + 1;
        }
        return true;
    }

    Session& m_session;
};

/// Writes the values of file after file, for people or as JSON.
class Report {
public:
    explicit Report(bool json) : m_json(json) {
        if (m_json) printf("[");
    }
    ~Report() {
        if (m_json) printf("%s]\n", m_any ? "\n" : "");
    }

    void add(const std::string& file, const std::vector<TagArgument>& tags, const FileValues& found) {
        if (m_json) {
            addJson(file, tags, found);
        } else {
            for (size_t i = 0; i < tags.size(); ++i) {
                printf("%s: %s %s = %s\n", printable(file).c_str(), tags[i].number().c_str(),
                       tags[i].keyword().c_str(), toUtf8(found.values[i], found.characterSet).c_str());
            }
        }
        m_any = true;
    }

private:
    void addJson(const std::string& file, const std::vector<TagArgument>& tags,
                 const FileValues& found) const {
        printf("%s\n  {\"file\": %s, \"characterSet\": %s, \"tags\": [", m_any ? "," : "",
               jsonText(file).c_str(), jsonText(found.characterSet).c_str());
        for (size_t i = 0; i < tags.size(); ++i) {
            printf("%s\n    {\"tag\": %s, \"keyword\": %s, \"value\": %s}", i > 0 ? "," : "",
                   jsonText(tags[i].number()).c_str(), jsonText(tags[i].keyword()).c_str(),
                   jsonText(toUtf8(found.values[i], found.characterSet)).c_str());
        }
        printf("]}");
    }

    bool m_json;
    bool m_any = false;
};

}  // namespace

int runQuery(const std::vector<std::string>& arguments) {
    CommandLine line(
        "query FILE... -t TAG [-t TAG]... [--once TAG]... [--json]",
        "Prints the values of tags. A TAG is gggg,eeee in hexadecimal or a keyword of the dictionary.\n\n"
        "Exit status: 0 all read, 1 some failed, 2 usage, 3 no daemon, 4 all failed, 5 not allowed.");
    line.addOptions()("tag,t", po::value<std::vector<std::string>>()->composing(),
                      "a tag to read from every file")(
        "once", po::value<std::vector<std::string>>()->composing(), "a tag to read from the first file only")(
        "json", "print JSON");
    line.takeRestAs("files");
    if (!line.parse(arguments)) return kAllDone;
    const std::vector<std::string> files = line.list("files");
    const std::vector<TagArgument> everywhere = parseTags(line.list("tag"));
    std::vector<TagArgument> tags = parseTags(line.list("once"));
    if (files.empty()) throw UsageError("query needs a file");
    if (tags.empty() && everywhere.empty()) throw UsageError("query needs a tag (-t TAG)");
    tags.insert(tags.end(), everywhere.begin(), everywhere.end());

    Session session(line.segment());
    Query query(session);
    Report report(line.has("json"));
    size_t asked = 0, failed = 0;
    for (const std::string& file : files) {
        ++asked;
        FileValues found;
        std::string cause;
        if (query.read(file, tags, found, cause)) {
            report.add(file, tags, found);
        } else {
            ++failed;
            fprintf(stderr, "%s: %s\n", printable(file).c_str(), printable(cause).c_str());
        }
        tags = everywhere;
        if (tags.empty()) break;
    }
    return exitCodeOf(asked, failed);
}
