#include "vintakd/ipc/processes.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

bool processLives(pid_t pid) {
    if (pid <= 0 || (kill(pid, 0) != 0 && errno == ESRCH)) return false;
    // Not through a stream, which throws where the process ends between the opening and the reading.
    char bytes[512];
    const int file = open(("/proc/" + std::to_string(pid) + "/stat").c_str(), O_RDONLY | O_CLOEXEC);
    const ssize_t got = file < 0 ? 0 : read(file, bytes, sizeof bytes);
    if (file >= 0) close(file);
    const std::string_view text(bytes, static_cast<size_t>(std::max<ssize_t>(got, 0)));
    // The state follows the command's name, which stands in brackets and may hold anything.
    const size_t close = text.rfind(')');
    if (close == std::string_view::npos || close + 2 >= text.size())
        return kill(pid, 0) == 0 || errno != ESRCH;
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
