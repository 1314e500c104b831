#include "leveling/worker/call_filter.h"

#if defined(__linux__) && (defined(__x86_64__) || defined(__aarch64__))

#include <fcntl.h>
#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <vector>

#include "leveling/worker/sanitized.h"

/*
 * A list of what is allowed, not of what is refused: a call that a later kernel brings is refused
 * too. Calls that open or remove files by their names are in it, since the file fence judges those;
 * calls that would pass the file fence by, as truncate() does before Linux 6.2, are not.
 *
 * Some calls are allowed with some arguments only. The filter sees the registers and no memory, and
 * compares the low 32 bits of an argument where the kernel takes no more.
 */

namespace quorvane {
namespace {

#ifdef __x86_64__
constexpr std::uint32_t kArchitecture = AUDIT_ARCH_X86_64;
#else
constexpr std::uint32_t kArchitecture = AUDIT_ARCH_AARCH64;
#endif

// futex_waitv of Linux 5.16; the same number everywhere. The C library tries newer calls first and
// takes the older ones where it reads ENOSYS. So do numbers of the x32 ABI, which is not used.
constexpr std::uint32_t kLastKnownCall = 449;
constexpr std::uint32_t kClone3 = 435;  // its flags lie in memory, where no filter sees them

constexpr std::uint32_t kRefuse = SECCOMP_RET_ERRNO | EPERM;
constexpr std::uint32_t kUnknown = SECCOMP_RET_ERRNO | ENOSYS;

/** In the order of how often a worker makes them. */
constexpr std::uint32_t kAllowed[] = {
    // Files that are open.
    SYS_read,
    SYS_write,
    SYS_lseek,
    SYS_pread64,
    SYS_pwrite64,
    SYS_readv,
    SYS_writev,
    SYS_preadv,
    SYS_pwritev,
    SYS_close,
    SYS_close_range,
    SYS_fstat,
    SYS_ftruncate,
    SYS_fsync,
    SYS_fdatasync,
    SYS_sync_file_range,
    SYS_fallocate,
    SYS_fadvise64,
    SYS_readahead,
    SYS_sendfile,
    SYS_copy_file_range,
    SYS_dup,
    SYS_dup3,
    SYS_getdents64,
    SYS_fstatfs,
    SYS_ppoll,
    SYS_pselect6,
    // Memory and threads.
    SYS_futex,
    SYS_mmap,
    SYS_munmap,
    SYS_mprotect,
    SYS_mremap,
    SYS_madvise,
    SYS_brk,
    SYS_mincore,
    SYS_mlock,
    SYS_munlock,
    SYS_set_robust_list,
    SYS_rseq,
    SYS_set_tid_address,
    SYS_gettid,
    SYS_getpid,
    SYS_getppid,
    SYS_sched_yield,
    SYS_sched_getaffinity,
    SYS_sched_getparam,
    SYS_sched_getscheduler,
    SYS_sched_get_priority_max,
    SYS_sched_get_priority_min,
    SYS_getcpu,
    SYS_membarrier,
    SYS_get_mempolicy,
    SYS_exit,
    SYS_exit_group,
    // Its own signals.
    SYS_rt_sigaction,
    SYS_rt_sigprocmask,
    SYS_rt_sigreturn,
    SYS_rt_sigpending,
    SYS_rt_sigtimedwait,
    SYS_rt_sigsuspend,
    SYS_sigaltstack,
    SYS_restart_syscall,
    // Names of files.
    SYS_openat,
    SYS_newfstatat,
    SYS_statx,
    SYS_faccessat,
    SYS_faccessat2,
    SYS_readlinkat,
    SYS_statfs,
    SYS_unlinkat,
    SYS_mkdirat,
    SYS_renameat2,
    SYS_getcwd,
    // Clocks, the system, who we are.
    SYS_clock_gettime,
    SYS_clock_getres,
    SYS_clock_nanosleep,
    SYS_nanosleep,
    SYS_gettimeofday,
    SYS_getrusage,
    SYS_times,
    SYS_getrandom,
    SYS_uname,
    SYS_sysinfo,
    SYS_getuid,
    SYS_geteuid,
    SYS_getgid,
    SYS_getegid,
    SYS_getpgid,
    SYS_getsid,
#ifdef SYS_getrlimit
    SYS_getrlimit,
#endif
#ifdef SYS_renameat
    SYS_renameat,
#endif
#ifdef __x86_64__
    // Older calls that newer machines do without.
    SYS_open,
    SYS_stat,
    SYS_lstat,
    SYS_access,
    SYS_readlink,
    SYS_unlink,
    SYS_rmdir,
    SYS_mkdir,
    SYS_rename,
    SYS_getdents,
    SYS_poll,
    SYS_select,
    SYS_dup2,
    SYS_pause,
    SYS_time,
    SYS_getpgrp,
    SYS_arch_prctl,
#endif
};

constexpr std::uint32_t kFileCommands[] = {F_DUPFD, F_DUPFD_CLOEXEC, F_GETFD,
                                           F_SETFD, F_GETFL,         F_SETFL};

constexpr std::uint32_t kTerminalQuestions[] = {TCGETS, TIOCGWINSZ, FIONREAD};

// The name of a thread, and that of its memory, which newer C libraries give.
constexpr std::uint32_t kNameMemory = 0x53564d41;
constexpr std::uint32_t kProcessControls[] = {PR_SET_NAME, PR_GET_NAME, PR_GET_DUMPABLE,
                                              PR_CAPBSET_READ, kNameMemory};

// Those of a new thread, and what a C library adds.
constexpr std::uint32_t kThreadFlags =
    CLONE_VM | CLONE_FS | CLONE_FILES | CLONE_SIGHAND | CLONE_THREAD | CLONE_SYSVSEM |
    CLONE_SETTLS | CLONE_PARENT_SETTID | CLONE_CHILD_SETTID | CLONE_CHILD_CLEARTID | CLONE_DETACHED;

/** Where the low or the high half of an argument stands; both machines are little-endian. */
constexpr std::uint32_t low_half(unsigned argument) {
    return static_cast<std::uint32_t>(offsetof(seccomp_data, args) +
                                      argument * sizeof(std::uint64_t));
}

constexpr std::uint32_t high_half(unsigned argument) {
    return low_half(argument) + sizeof(std::uint32_t);
}

/** A program for the kernel's filter; the number of the call is loaded between two rules. */
class CallFilter {
  public:
    CallFilter() {
        load(offsetof(seccomp_data, arch));
        jump(BPF_JEQ, kArchitecture, 1, 0);
        answer(kRefuse);
        load_number();
    }

    void allow(std::uint32_t call) {
        jump(BPF_JEQ, call, 0, 1);
        answer(SECCOMP_RET_ALLOW);
    }

    /** The call with one of these values as an argument of 32 bits. */
    template <class Values>
    void allow_with(std::uint32_t call, unsigned argument, const Values& values) {
        begin(call);
        load(low_half(argument));
        for (const std::uint32_t value : values) {
            allow(value);
        }
        end();
    }

    /** A new thread of this process, and no other process. */
    void allow_threads() {
        begin(SYS_clone);
        load(low_half(0));
        jump(BPF_JSET, ~kThreadFlags, 2, 0);
        jump(BPF_JSET, CLONE_THREAD, 0, 1);
        answer(SECCOMP_RET_ALLOW);
        end();
    }

    /** A look at the limits of this process. */
    void allow_own_limits() {
        begin(SYS_prlimit64);
        constexpr unsigned kProcess = 0;
        constexpr unsigned kNewLimit = 2;  // an address
        for (const std::uint32_t part :
             {low_half(kProcess), low_half(kNewLimit), high_half(kNewLimit)}) {
            load(part);
            jump(BPF_JEQ, 0, 1, 0);
            answer(kRefuse);
        }
        answer(SECCOMP_RET_ALLOW);
        end();
    }

    bool install() {
        jump(BPF_JEQ, kClone3, 1, 0);
        jump(BPF_JGT, kLastKnownCall, 0, 1);
        answer(kUnknown);
        answer(kRefuse);
        const sock_fprog program{static_cast<unsigned short>(lines_.size()), lines_.data()};
        return prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
    }

  private:
    void load(std::uint32_t offset) {
        lines_.push_back(BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offset));
    }

    void load_number() { load(offsetof(seccomp_data, nr)); }

    void answer(std::uint32_t value) { lines_.push_back(BPF_STMT(BPF_RET | BPF_K, value)); }

    void jump(unsigned test, std::uint32_t value, std::uint8_t if_true, std::uint8_t if_false) {
        lines_.push_back(
            BPF_JUMP(static_cast<std::uint16_t>(BPF_JMP | test | BPF_K), value, if_true, if_false));
    }

    /** What follows is about this call only. */
    void begin(std::uint32_t call) {
        begun_ = lines_.size();
        jump(BPF_JEQ, call, 0, 0);
    }

    /** The call with other arguments is refused. */
    void end() {
        answer(kRefuse);
        lines_[begun_].jf = static_cast<std::uint8_t>(lines_.size() - begun_ - 1);
    }

    std::vector<sock_filter> lines_;
    std::size_t begun_ = 0;
};

}  // namespace

bool fence_calls() {
    CallFilter filter;
    for (const std::uint32_t call : kAllowed) {
        filter.allow(call);
    }
    if (kSanitized) {
        filter.allow(SYS_pipe2);  // a sanitizer looks through a pipe whether an address can be read
    }
    filter.allow_threads();
    filter.allow_own_limits();
    filter.allow_with(SYS_fcntl, 1, kFileCommands);
    filter.allow_with(SYS_ioctl, 1, kTerminalQuestions);
    filter.allow_with(SYS_prctl, 0, kProcessControls);
    // abort() and pthread_kill() send signals to threads of this process.
    filter.allow_with(SYS_tgkill, 0,
                      std::initializer_list<std::uint32_t>{static_cast<std::uint32_t>(getpid())});
    return filter.install();
}

}  // namespace quorvane

#else

namespace quorvane {

bool fence_calls() {
    return false;
}

}  // namespace quorvane

#endif
