#include "vintakd/ipc/processes.h"

#include <sys/wait.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>

bool processLives(pid_t pid) {
    if (pid <= 0 || (kill(pid, 0) != 0 && errno == ESRCH)) return false;
    std::ifstream file("/proc/" + std::to_string(pid) + "/stat");
    const std::string text((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    // The state follows the command's name, which stands in brackets and may hold anything.
    const size_t close = text.rfind(')');
    if (close == std::string::npos || close + 2 >= text.size()) return kill(pid, 0) == 0 || errno != ESRCH;
    const char state = text[close + 2];
    return state != 'Z' && state != 'X';
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
