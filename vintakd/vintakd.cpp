#include <dcmtk/config/osconfig.h>
#include <dcmtk/oflog/oflog.h>
#include <signal.h>
#include <unistd.h>

#include <boost/program_options.hpp>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <stdexcept>
#include <string>

#include "hsutils/StandardFiles.h"
#include "hsutils/Utils.h"
#include "vintakd/config/configcheck.h"
#include "vintakd/ipc/QXLogger.h"
#include "vintakd/ipc/ipcexceptions.h"
#include "vintakd/pool/DaemonInfo.h"
#include "vintakd/pool/GatewaySupervisor.h"
#include "vintakd/pool/QXSyslogAppender.h"
#include "vintakd/pool/SegmentOwner.h"
#include "vintakd/pool/SpinLockChecker.h"
#include "vintakd/pool/logformat.h"
#include "vintakd/service/VintakServant.h"

namespace po = boost::program_options;

namespace {

constexpr uint64_t kChannelSize = 16384;
constexpr ipc::timeout kGatewayTimeout{20'000};

enum ExitStatus { kDone = 0, kAlreadyRunning = 1, kUsage = 2, kFailed = 3 };

/// Sizes in bytes of the segment that a number of channels needs.
struct SegmentLayout {
    explicit SegmentLayout(uint64_t count)
        : channelCount(count),
          headerSize(GatewayBase::getFirstChannelOffset(count)),
          roundedHeaderSize(roundUpTo(headerSize, static_cast<uint64_t>(sysconf(_SC_PAGESIZE)))),
          memorySize(count * kChannelSize + roundedHeaderSize) {}

    uint64_t channelCount;
    uint64_t headerSize;
    uint64_t roundedHeaderSize;
    uint64_t memorySize;
};

po::options_description describeOptions() {
    po::options_description options("Allowed options");
    options.add_options()("help", "produce help message")("servers", po::value<int>()->default_value(4),
                                                          "number of server processes")(
        "syslog", "log messages through syslog")("debug", "enable debug log level");
    return options;
}

void setUpLogging(const po::variables_map& values, bool json) {
    dcmtk::log4cplus::Logger root = dcmtk::log4cplus::Logger::getRoot();
    if (values.count("syslog")) {
        dcmtk::log4cplus::SharedAppenderPtr appender(new dcmtk::log4cplus::QXSysLogAppender("vintakd"));
        root.removeAllAppenders();
        root.addAppender(appender);
    }
    if (values.count("debug")) OFLog::configure(OFLogger::DEBUG_LOG_LEVEL);
    setLogFormat(values.count("syslog") ? "%m%n" : "%P: %m%n", json);
}

void logStart(const SegmentLayout& layout) {
    OFLOG_INFO(GetQXLogger(), "vintakd start\n"
                                  << "Shared Memory Size: " << layout.memorySize << "\n"
                                  << "Header Size: " << layout.headerSize << "\n"
                                  << "Header Size (Rounded): " << layout.roundedHeaderSize << "\n"
                                  << "Channel Size: " << kChannelSize << "\n"
                                  << "Channel Count: " << layout.channelCount);
}

/// Why the daemon does not start or go on; not for the log's appenders, which may go to the system log.
void complain(const char* invocation, const std::string& why) {
    std::cerr << lineBesideLog(invocation + why) << std::flush;
}

/// Ends what was started, whatever ends it.
class RunningPool {
public:
    RunningPool(GatewaySupervisor<VintakServant>& pool, const char* name) : m_pool(pool), m_name(name) {}
    ~RunningPool() {
        m_pool.stopServers();
        removeOwnSegment(m_name, m_pool.segmentFile());
    }
    RunningPool(const RunningPool&) = delete;
    RunningPool& operator=(const RunningPool&) = delete;

private:
    GatewaySupervisor<VintakServant>& m_pool;
    const char* m_name;
};

const char* segmentName() {
    const char* name = getenv("VINTAKD_SEGMENT");
    return name && *name ? name : "vintakd";
}

void runPool(const SegmentLayout& layout, const ServantLimits& limits) {
    const char* name = segmentName();
    const std::string inUse =
        std::string("the segment \"") + name + "\" belongs to another vintakd that is running";
    if (segmentHasOwner(name)) throw std::runtime_error(inUse);
    GatewayBase::remove(name);
    GatewaySupervisor<VintakServant> supervisor(name, layout.memorySize, kChannelSize, layout.channelCount,
                                                false);
    if (!ownSegment(name, supervisor.segmentFile())) throw std::runtime_error(inUse);
    const RunningPool running(supervisor, name);
    supervisor.setTimeout(kGatewayTimeout, true);
    supervisor.setLimits(limits);
    if (getenv("RUN")) supervisor.setMetricsFile(getRunPath("vintakd.prom"));
    logStart(layout);
    if (supervisor.startServers()) {
        const SpinLockChecker checker(supervisor);
        supervisor.supervise();
    }
}

/// Says what one may not expect of where the daemon lives; throws std::runtime_error with what is wrong.
void reportConfiguration(const ConfigReport& report) {
    for (const std::string& note : report.notes)
        OFLOG_WARN(GetQXLogger(), "vintakd configuration: " << note);
    if (!getenv("RUN"))
        OFLOG_WARN(GetQXLogger(),
                   "vintakd runs without RUN: its pid and lock files are in the root directory, and "
                   "it writes no metrics");
    std::string problems;
    for (const std::string& problem : report.problems)
        problems += (problems.empty() ? "" : "\n") + problem;
    if (!problems.empty()) throw std::runtime_error(problems);
}

int runDaemon(const char* invocation, int servers, const Configuration& configuration) {
    // Each is a process: some thousands too many, by a slip of the finger, keep a machine from all other
    // work.
    constexpr int kMostServers = 1000;
    if (servers < 1 || servers > kMostServers) {
        complain(invocation, ": the number of servers has to be 1 to " + std::to_string(kMostServers) +
                                 ", not " + std::to_string(servers));
        return kUsage;
    }
    const VintakDaemonInfo info(false);
    if (info.isDeamonRunning()) {
        complain(invocation, " is already running");
        return kAlreadyRunning;
    }
    const char* run = getenv("RUN");
    if (!info.problem().empty())
        OFLOG_WARN(GetQXLogger(), "vintakd runs with " << printable(info.problem())
                                                       << " (the folder is RUN's: "
                                                       << printable(run ? run : "not set") << ")");
    reportConfiguration(configuration.report);
    VintakServant::prepareProcess();
    runPool(SegmentLayout(static_cast<uint64_t>(static_cast<int64_t>(servers))),
            ServantLimits(configuration.limits));
    return kDone;
}

}  // namespace

int main(int argc, char* argv[]) {
    const StandardFiles standardFiles;
    const char* invocation = argc > 0 ? argv[0] : "vintakd";
    blockSupervisorSignals();
    // Whoever reads our log or an output file through a pipe may go away: that is a failed write, no reason
    // to end.
    signal(SIGPIPE, SIG_IGN);
    try {
        const po::options_description options = describeOptions();
        po::variables_map values;
        // Without a description of positions the parser would silently drop a word that belongs to no option.
        const po::positional_options_description noWords;
        po::store(po::command_line_parser(argc, argv).options(options).positional(noWords).run(), values);
        po::notify(values);
        if (values.count("help")) {
            std::cout << options << std::endl;
            return kDone;
        }
        const Configuration configuration = checkConfiguration(getenv("CONF"), getenv("DOWNLOAD_HOME"));
        setUpLogging(values, configuration.logIsJson);
        return runDaemon(invocation, values["servers"].as<int>(), configuration);
    } catch (const po::error& error) {
        complain(invocation, std::string(": ") + error.what());
        return kUsage;
    } catch (const SharedMemoryNotAllowedException&) {
        complain(invocation, std::string(": the segment \"") + segmentName() +
                                 "\" belongs to another account, which has to remove it");
    } catch (const TimeoutException&) {
        complain(invocation, ": the segment's spin lock could not be had in time");
    } catch (const std::exception& error) {
        complain(invocation, std::string(": ") + error.what());
    } catch (...) {
        complain(invocation, ": the gateway segment could not be set up");
    }
    return kFailed;
}
