#include <chrono>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <thread>

#include "hsutils/Utils.h"
#include "tools/broker/Job.h"
#include "tools/broker/JobPublisher.h"
#include "tools/command/CommandLine.h"
#include "tools/command/Interruption.h"
#include "tools/command/ObjectSource.h"
#include "tools/command/Session.h"
#include "tools/exitcodes.h"
#include "tools/feeding/RetryPolicy.h"
#include "tools/vintak-feed/BrokerWords.h"
#include "tools/vintak-feed/commands.h"

namespace po = boost::program_options;

namespace {

constexpr const char* kAbout =
    "Puts a job for every object into a broker's queue (RabbitMQ), from where `vintak work` beside the "
    "daemons\n"
    "takes it. A job names the object's file, as the workers' hosts see it too, and the folder of its "
    "results:\n"
    "of a file that is named its own name without .dcm, in a folder or a list what stands before it as "
    "well.\n"
    "When it ends, all that it counts is on the broker's disks. A broker that goes away meanwhile is waited "
    "for.\n\n"
    "Exit status: 0 all submitted, 1 some files cannot be, 2 usage, 3 no broker, 4 none, 130 interrupted.";

void addOptions(CommandLine& line) {
    line.addOptions()("files-from", po::value<std::string>(),
                      "read the names of files and folders from this list, one a line; - is standard input")(
        "null,0", "names in the list end with a NUL, not with the line");
    addBrokerOptions(line);
    line.takeRestAs("files");
}

ObjectSource sourceOf(const CommandLine& line) {
    const std::vector<std::string> words = line.list("files");
    const bool isListed = line.has("files-from");
    if (words.empty() != isListed) throw UsageError("submit needs files or folders, or a list of them");
    if (line.has("null") && !isListed) throw UsageError("-0 is about --files-from");
    if (isListed)
        return {wordsOfList(line.get<std::string>("files-from"), line.has("null") ? '\0' : '\n'), true};
    return {wordsOf(words), false};
}

/// Jobs on their way to the broker, however often it goes away.
class Submission {
public:
    explicit Submission(BrokerOptions broker) : m_broker(std::move(broker)) { connect(); }

    /// Throws JobError for a file that cannot be named in a message, BrokerError after an interruption.
    void add(const FoundObject& object) {
        const std::string file = std::filesystem::path(object.path).filename().string();
        m_unsafe.push_back(makeJob(absolutePath(object.path), object.folder + file));
        constexpr size_t kBatch = 500;
        if (m_unsafe.size() == kBatch)
            flush();
        else
            persist([this] { m_publisher->publish(m_unsafe.back()); });
    }
    void flush() {
        if (m_unsafe.empty()) return;
        persist([this] {
            if (m_unsafe.size() > m_sent) m_publisher->publish(m_unsafe.back());
            m_publisher->flush();
        });
        m_safe += m_unsafe.size();
        m_unsafe.clear();
        m_sent = 0;
    }
    size_t safe() const { return m_safe; }

private:
    void connect() { m_publisher = std::make_unique<JobPublisher>(m_broker, "vintak submit"); }

    /// Does it; where the broker goes away, waits for it, sends all again that is not safe, and does it.
    template <typename Action>
    void persist(const Action& action) {
        for (unsigned losses = 0;;) {
            try {
                if (!m_publisher) {
                    connect();
                    for (size_t i = 0; i < m_sent; ++i)
                        m_publisher->publish(m_unsafe[i]);
                }
                action();
                m_sent = m_unsafe.size();
                return;
            } catch (const BrokerError& error) {
                m_publisher.reset();
                if (Interruption::came()) throw;
                const auto pause = pauseAfter(++losses);
                fprintf(stderr, "vintak submit: no broker: %s; again in %lld s\n",
                        printable(error.what()).c_str(), static_cast<long long>(pause.count()));
                const auto end = std::chrono::steady_clock::now() + pause;
                while (std::chrono::steady_clock::now() < end && !Interruption::came())
                    std::this_thread::sleep_for(std::chrono::milliseconds(100));
            }
        }
    }

    BrokerOptions m_broker;
    std::unique_ptr<JobPublisher> m_publisher;
    std::vector<Job> m_unsafe;
    size_t m_sent = 0;  ///< of these
    size_t m_safe = 0;
};

}  // namespace

int runSubmit(const std::vector<std::string>& arguments) {
    CommandLine line("submit FILE|FOLDER... [--broker ADDRESS] [options]", kAbout);
    addOptions(line);
    if (!line.parse(arguments)) return kAllDone;
    ObjectSource source = sourceOf(line);
    const Interruption interruption;
    try {
        Submission submission(brokerOptions(line));
        size_t refused = 0;
        for (FoundObject object; !Interruption::came() && source.next(object);) {
            try {
                if (!object.problem.empty()) throw JobError(object.problem);
                submission.add(object);
            } catch (const JobError& error) {
                ++refused;
                fprintf(stderr, "%s: %s\n", printable(object.path).c_str(), printable(error.what()).c_str());
            }
        }
        submission.flush();
        printf("%zu submitted, %zu cannot be\n", submission.safe(), refused);
        if (Interruption::came()) return kInterrupted;
        if (submission.safe() + refused == 0 && !line.has("files-from"))
            throw std::runtime_error("there is no DICOM object in " + line.list("files").front());
        return exitCodeOf(submission.safe() + refused, refused);
    } catch (const BrokerError& error) {
        fprintf(stderr, "vintak: no broker: %s\n", printable(error.what()).c_str());
        return kNoDaemon;
    }
}
