#include "vintakd/ipc/VintakLog.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <boost/date_time/posix_time/posix_time.hpp>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <mutex>
#include <ostream>
#include <stdexcept>
#include <string_view>

#include "hsutils/Utils.h"

volatile char* VintakLog::s_shData = nullptr;
int VintakLog::s_fdLog = -1;

namespace {

std::mutex& logMutex() {
    static std::mutex mutex;
    // A fork in the middle of another thread's line must not leave the child a mutex that nobody will ever
    // unlock.
    [[maybe_unused]] static const int registered =
        pthread_atfork([] { logMutex().lock(); }, [] { logMutex().unlock(); }, [] { logMutex().unlock(); });
    return mutex;
}

const char* environmentOr(const char* name, const char* otherwise) {
    const char* value = getenv(name);
    return value && *value ? value : otherwise;
}

const char* switchName() {
    return environmentOr("VINTAKD_TRACE_SWITCH", "/vintaklog");
}

/// The name under which there is no trace and no switch.
constexpr std::string_view kNoSwitch = "-";

int openTraceFile() {
    const std::string path =
        std::string(environmentOr("VINTAKD_TRACE_PREFIX", "/home/kbuser/var/log/vintaklog")) + "." +
        std::to_string(getpid()) + ".log";
    const int descriptor = open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
    if (descriptor >= 0) fchmod(descriptor, 0666);
    return descriptor;
}

volatile char* mapByte(int descriptor) {
    void* address = mmap(nullptr, 1, PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
    close(descriptor);
    return address == MAP_FAILED ? nullptr : static_cast<volatile char*>(address);
}

std::string tracePrefix() {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    const auto nanoseconds = std::chrono::duration_cast<std::chrono::nanoseconds>(now).count();
    const auto seconds = static_cast<time_t>(nanoseconds / 1'000'000'000);
    tm local{};
    localtime_r(&seconds, &local);
    char date[32];
    strftime(date, sizeof date, "%Y-%m-%d %H:%M:%S.", &local);
    char text[96];
    snprintf(text, sizeof text, "%s%06lld [%d / %d] ", date,
             static_cast<long long>(nanoseconds / 1000 % 1'000'000), static_cast<int>(getpid()), mygettid());
    return text;
}

}  // namespace

bool VintakLog::mapSwitch() {
    const std::lock_guard<std::mutex> lock(logMutex());
    if (s_shData) return true;
    if (switchName() == kNoSwitch) return false;
    int descriptor = shm_open(switchName(), O_RDWR, 0600);
    if (descriptor >= 0) {
        struct stat status {};
        // Its creator may not have sized it yet: touching the byte then would be a SIGBUS.
        if (fstat(descriptor, &status) != 0 || status.st_size < 1) {
            close(descriptor);
            return false;
        }
        s_shData = mapByte(descriptor);
        return s_shData != nullptr;
    }
    if (errno != ENOENT) return false;
    descriptor = shm_open(switchName(), O_RDWR | O_CREAT, 0600);
    if (descriptor < 0) return false;
    if (ftruncate(descriptor, 1) != 0) {
        close(descriptor);
        return false;
    }
    s_shData = mapByte(descriptor);
    if (s_shData) *s_shData = 0;
    return s_shData != nullptr;
}

bool VintakLog::IsEnabled() {
    if (!s_shData && !mapSwitch()) return false;
    return *s_shData != 0;
}

bool VintakLog::Enable(bool on) {
    IsEnabled();
    if (!s_shData) return false;
    *s_shData = on ? 1 : 0;
    return true;
}

void VintakLog::Log(const std::string& text) {
    const std::lock_guard<std::mutex> lock(logMutex());
    if (s_fdLog < 0) s_fdLog = openTraceFile();
    if (s_fdLog < 0) return;
    const std::string line = tracePrefix() + text + "\n";
    [[maybe_unused]] const ssize_t written = write(s_fdLog, line.data(), line.size());
    fsync(s_fdLog);
}

std::ostream& printNow(std::ostream& out) {
    timeval now{};
    gettimeofday(&now, nullptr);
    tm local{};
    if (!localtime_r(&now.tv_sec, &local)) {
        throw std::runtime_error("could not convert calendar time to local time");
    }
    const boost::posix_time::ptime time =
        boost::posix_time::ptime(
            boost::gregorian::date_from_tm(local),
            boost::posix_time::time_duration(local.tm_hour, local.tm_min, local.tm_sec)) +
        boost::posix_time::microseconds(now.tv_usec);
    return out << "[" << time << "] ";
}
