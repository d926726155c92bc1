#include "vintakd/pool/servantdeath.h"

#include <sys/wait.h>
#include <unistd.h>

#include <sstream>

#include "hsutils/Utils.h"
#include "vintakd/ipc/processes.h"

namespace {

std::string seconds(double value) {
    std::ostringstream text;
    text.setf(std::ios::fixed);
    text.precision(3);
    text << value << " s";
    return text.str();
}

double toSeconds(const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

/// The limit that the way a servant ended speaks of; empty for none.
std::string limitBehind(const siginfo_t& how, const ServantReport& report, const ServantLimits& limits) {
    if (how.si_code == CLD_EXITED) return "";
    if (how.si_status == SIGXCPU && report.onFrameTime)
        return "the limit of " + std::to_string(limits.frameCpuSeconds) +
               " s of processor time for a frame was hit";
    if (how.si_status == SIGXCPU)
        return "the limit of " + std::to_string(limits.cpuSeconds) +
               " s of processor time for a request was hit";
    if (how.si_status == SIGSYS) return "it made a system call that servants have given up";
    return "";
}

std::string workInHands(const ServantReport& report) {
    const int64_t busySince = report.busySince;
    if (busySince <= 0) return "idle";
    const std::string request = report.printable();
    return seconds(nanoToSec(nanoTime() - busySince)) + " into " +
           (request.empty() ? "a request that it had not looked at" : "serving " + request);
}

}  // namespace

std::string describeServantDeath(const ServantDeath& death, const ServantReport& report,
                                 const ServantLimits& limits) {
    const bool withDaemon =
        death.endedWithDaemon && death.how.si_code == CLD_KILLED && death.how.si_status == SIGINT;
    std::string text = withDaemon ? "ended with the daemon" : describeDeath(death.how);
    text += " after " + seconds(death.livedFor.count()) + ", " + workInHands(report);
    const std::string limit =
        death.killedFor.empty() ? limitBehind(death.how, report, limits) : death.killedFor;
    if (!limit.empty()) text += "; " + limit;
    return text + "; it used " + seconds(toSeconds(death.used.ru_utime) + toSeconds(death.used.ru_stime)) +
           " of processor time and " + std::to_string(death.used.ru_maxrss / 1024) + " MiB of memory";
}

void awaitEnd(pid_t pid, std::chrono::steady_clock::time_point limit) {
    siginfo_t death{};
    while (waitid(P_PID, static_cast<id_t>(pid), &death, WEXITED | WNOHANG | WNOWAIT) == 0 &&
           death.si_pid == 0) {
        if (std::chrono::steady_clock::now() >= limit) {
            kill(pid, SIGKILL);
            waitid(P_PID, static_cast<id_t>(pid), &death, WEXITED | WNOWAIT);
            return;
        }
        usleep(2000);
    }
}
