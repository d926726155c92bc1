#include "vintakd/ipc/processes.h"

#include <sys/wait.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>

#include "hsutils/processstat.h"

bool processLives(pid_t pid) {
    if (pid <= 0 || (kill(pid, 0) != 0 && errno == ESRCH)) return false;
    const std::string stat = processStat(pid);
    return stat.empty() ? kill(pid, 0) == 0 || errno != ESRCH : !hasEnded(stat);
}

std::string describeDeath(const siginfo_t& death) {
    if (death.si_code == CLD_EXITED) {
        std::string text = "exited with status " + std::to_string(death.si_status);
        if (death.si_status == EXIT_SUCCESS) text += " (EXIT_SUCCESS)";
        if (death.si_status == EXIT_FAILURE) text += " (EXIT_FAILURE)";
        return text;
    }
    const char* name = sigabbrev_np(death.si_status);
    std::string text = "was killed by ";
    text += name ? std::string("SIG") + name : "signal " + std::to_string(death.si_status);
    text += std::string(" (") + strsignal(death.si_status);
    text += death.si_code == CLD_DUMPED ? ", core dumped)" : ")";
    return text;
}
