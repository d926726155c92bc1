#include "tests/fault/processes.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdio>
#include <exception>
#include <new>
#include <utility>

namespace {

[[noreturn]] void runChild(const std::function<std::string()>& work, int writing) {
    dup2(open("/dev/null", O_WRONLY | O_CLOEXEC), STDERR_FILENO);
    std::string text;
    try {
        text = work();
    } catch (const std::exception& error) {
        text = std::string("the work ended with an exception: ") + error.what();
    } catch (...) {
        text = "the work ended with an exception";
    }
    const char end = '\n';
    const bool written = write(writing, text.data(), text.size()) == static_cast<ssize_t>(text.size()) &&
                         write(writing, &end, 1) == 1;
    _exit(written ? 0 : 1);
}

}  // namespace

Child::Child(const std::function<std::string()>& work) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("no pipe for a child");
    (void)fflush(nullptr);
    m_pid = fork();
    if (m_pid < 0) throw std::runtime_error("no process for a child");
    if (m_pid == 0) runChild(work, ends[1]);
    close(ends[1]);
    m_reading = ends[0];
}

Child::Child(Child&& other) noexcept
    : m_pid(std::exchange(other.m_pid, 0)), m_reading(std::exchange(other.m_reading, -1)) {}

Child::~Child() {
    if (m_pid > 0) kill(m_pid, SIGKILL);
    waitForEnd();
    if (m_reading >= 0) close(m_reading);
}

std::optional<std::string> Child::text(Clock::time_point limit) {
    std::string text;
    for (;;) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(limit - Clock::now()).count();
        pollfd waiting{m_reading, POLLIN, 0};
        if (poll(&waiting, 1, static_cast<int>(std::max<long>(left, 0))) <= 0) return std::nullopt;
        char bytes[4096];
        const ssize_t count = read(m_reading, bytes, sizeof bytes);
        if (count > 0) {
            text.append(bytes, static_cast<size_t>(count));
            continue;
        }
        // A text without its last line feed is that of a child that died over it.
        if (count < 0 || text.empty() || text.back() != '\n') return std::nullopt;
        text.pop_back();
        return text;
    }
}

int Child::waitForEnd() {
    if (m_pid <= 0) return 0;
    int status = 0;
    waitpid(std::exchange(m_pid, 0), &status, 0);
    return WIFSIGNALED(status) ? WTERMSIG(status) : 0;
}

SharedFlag::SharedFlag() {
    void* memory = mmap(nullptr, sizeof *m_flag, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) throw std::bad_alloc();
    m_flag = new (memory) std::atomic<bool>(false);
}

SharedFlag::~SharedFlag() {
    munmap(m_flag, sizeof *m_flag);
}
