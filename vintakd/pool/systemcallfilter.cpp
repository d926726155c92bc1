#include "vintakd/pool/systemcallfilter.h"

#include <seccomp.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>

#include "hsutils/Utils.h"

namespace {

/// What a servant's own code, the toolkit and the C library call while they serve.
constexpr int kNeeded[] = {
    // files
    SCMP_SYS(open),
    SCMP_SYS(openat),
    SCMP_SYS(close),
    SCMP_SYS(close_range),
    SCMP_SYS(read),
    SCMP_SYS(readv),
    SCMP_SYS(pread64),
    SCMP_SYS(write),
    SCMP_SYS(writev),
    SCMP_SYS(pwrite64),
    SCMP_SYS(lseek),
    SCMP_SYS(fsync),
    SCMP_SYS(fdatasync),
    SCMP_SYS(ftruncate),
    SCMP_SYS(fallocate),
    SCMP_SYS(fadvise64),
    SCMP_SYS(flock),
    SCMP_SYS(fcntl),
    SCMP_SYS(dup),
    SCMP_SYS(dup3),
    SCMP_SYS(ioctl),
    SCMP_SYS(poll),
    SCMP_SYS(ppoll),
    SCMP_SYS(copy_file_range),
    SCMP_SYS(sendfile),
    // names of files
    SCMP_SYS(stat),
    SCMP_SYS(fstat),
    SCMP_SYS(lstat),
    SCMP_SYS(newfstatat),
    SCMP_SYS(statx),
    SCMP_SYS(statfs),
    SCMP_SYS(fstatfs),
    SCMP_SYS(access),
    SCMP_SYS(faccessat),
    SCMP_SYS(faccessat2),
    SCMP_SYS(readlink),
    SCMP_SYS(readlinkat),
    SCMP_SYS(getcwd),
    SCMP_SYS(getdents64),
    SCMP_SYS(mkdir),
    SCMP_SYS(mkdirat),
    SCMP_SYS(rmdir),
    SCMP_SYS(unlink),
    SCMP_SYS(unlinkat),
    SCMP_SYS(rename),
    SCMP_SYS(renameat),
    SCMP_SYS(renameat2),
    SCMP_SYS(fchmod),
    SCMP_SYS(umask),
    SCMP_SYS(utimensat),
    // memory
    SCMP_SYS(brk),
    SCMP_SYS(mmap),
    SCMP_SYS(munmap),
    SCMP_SYS(mremap),
    SCMP_SYS(mprotect),
    SCMP_SYS(madvise),
    SCMP_SYS(msync),
    SCMP_SYS(membarrier),
    // time and waiting
    SCMP_SYS(futex),
    SCMP_SYS(nanosleep),
    SCMP_SYS(clock_nanosleep),
    SCMP_SYS(clock_gettime),
    SCMP_SYS(clock_getres),
    SCMP_SYS(gettimeofday),
    SCMP_SYS(time),
    SCMP_SYS(sched_yield),
    SCMP_SYS(restart_syscall),
    // itself
    SCMP_SYS(getpid),
    SCMP_SYS(gettid),
    SCMP_SYS(getppid),
    SCMP_SYS(getuid),
    SCMP_SYS(geteuid),
    SCMP_SYS(getgid),
    SCMP_SYS(getegid),
    SCMP_SYS(getrusage),
    SCMP_SYS(getrlimit),
    SCMP_SYS(setrlimit),
    SCMP_SYS(sysinfo),
    SCMP_SYS(uname),
    SCMP_SYS(getrandom),
    SCMP_SYS(getcpu),
    SCMP_SYS(sched_getaffinity),
    SCMP_SYS(rt_sigaction),
    SCMP_SYS(rt_sigprocmask),
    SCMP_SYS(rt_sigreturn),
    SCMP_SYS(rt_sigpending),
    SCMP_SYS(sigaltstack),
    SCMP_SYS(set_robust_list),
    SCMP_SYS(rseq),
    SCMP_SYS(exit),
    SCMP_SYS(exit_group),
};

/// What nothing in a servant ever calls: whoever does is not ours.
constexpr int kIntrusion[] = {
    SCMP_SYS(execve),
    SCMP_SYS(execveat),
    SCMP_SYS(fork),
    SCMP_SYS(vfork),
    SCMP_SYS(clone),
    SCMP_SYS(clone3),
    SCMP_SYS(ptrace),
    SCMP_SYS(process_vm_readv),
    SCMP_SYS(process_vm_writev),
    SCMP_SYS(pidfd_getfd),
    SCMP_SYS(bpf),
    SCMP_SYS(userfaultfd),
    SCMP_SYS(perf_event_open),
    SCMP_SYS(init_module),
    SCMP_SYS(finit_module),
    SCMP_SYS(delete_module),
    SCMP_SYS(kexec_load),
    SCMP_SYS(kexec_file_load),
    SCMP_SYS(mount),
    SCMP_SYS(umount2),
    SCMP_SYS(pivot_root),
    SCMP_SYS(chroot),
    SCMP_SYS(setns),
    SCMP_SYS(unshare),
    SCMP_SYS(reboot),
    SCMP_SYS(swapon),
    SCMP_SYS(add_key),
    SCMP_SYS(request_key),
    SCMP_SYS(keyctl),
    SCMP_SYS(setuid),
    SCMP_SYS(setgid),
    SCMP_SYS(setreuid),
    SCMP_SYS(setresuid),
};

void check(int result) {
    if (result < 0)
        throw std::runtime_error(std::string("the system call filter could not be set: ") +
                                 std::strerror(-result));
}

}  // namespace

void installSystemCallFilter() {
    if (kSanitized) return;
    const std::unique_ptr<void, decltype(&seccomp_release)> filter(seccomp_init(SCMP_ACT_ERRNO(EPERM)),
                                                                   &seccomp_release);
    if (!filter) check(-ENOMEM);
    // Some of the calls do not exist on every architecture; what does not exist need not be allowed.
    const auto add = [&filter](uint32_t action, int call) {
        if (call >= 0) check(seccomp_rule_add(filter.get(), action, call, 0));
    };
    for (const int call : kNeeded)
        add(SCMP_ACT_ALLOW, call);
    for (const int call : kIntrusion)
        add(SCMP_ACT_KILL_PROCESS, call);
    // A failed assertion ends the process by a signal to itself; signals to others are not a servant's
    // business.
    check(seccomp_rule_add(filter.get(), SCMP_ACT_ALLOW, SCMP_SYS(tgkill), 1,
                           SCMP_A0(SCMP_CMP_EQ, static_cast<scmp_datum_t>(getpid()))));
    // The system log's socket was connected before the fork; a message without an address can only go there.
    check(seccomp_rule_add(filter.get(), SCMP_ACT_ALLOW, SCMP_SYS(sendto), 1, SCMP_A4(SCMP_CMP_EQ, 0)));
    // Its own limits only.
    check(seccomp_rule_add(filter.get(), SCMP_ACT_ALLOW, SCMP_SYS(prlimit64), 1, SCMP_A0(SCMP_CMP_EQ, 0)));
    check(seccomp_load(filter.get()));
}
