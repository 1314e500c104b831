/*
 * A library to be preloaded (LD_PRELOAD) that looks at a worker's fence from the inside.
 *
 *     INSIDE_REPORT  a line for each try goes to the standard error stream: "inside NAME: RESULT",
 *                    where RESULT is "allowed" or the error's name. The tries run when the worker
 *                    removes its scratch directory, behind all its work.
 *     INSIDE_INPUT   a file that the worker may read
 *     INSIDE_OTHER   a file that it may not
 *     INSIDE_BARE    set: the kernel seems to know no fences
 *     INSIDE_CRASH   what the end of a file's name is whose opening by libsndfile ends the process
 */
#include <dlfcn.h>
#include <fcntl.h>
#include <ftw.h>
#include <linux/prctl.h>
#include <sched.h>
#include <sndfile.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <thread>

namespace {

constexpr int kForeignDescriptor = 9;  // the test leaves it open

std::string variable(const char* name) {
    const char* value = getenv(name);
    return value != nullptr ? value : "";
}

bool is_worker() {
    char line[256] = "";
    FILE* file = fopen("/proc/self/cmdline", "r");
    const std::size_t bytes = file != nullptr ? fread(line, 1, sizeof line - 1, file) : 0;
    if (file != nullptr) {
        fclose(file);
    }
    return std::string(line, bytes).find("--quorvane-worker") != std::string::npos;
}

void report(const char* name, bool done) {
    const int error = errno;
    fprintf(stderr, "inside %s: %s\n", name, done ? "allowed" : strerrorname_np(error));
}

/** Ends the process when the name of this file ends as INSIDE_CRASH says. */
void crash_on(const std::string& file) {
    const std::string end = variable("INSIDE_CRASH");
    if (!end.empty() && file.size() >= end.size() &&
        file.compare(file.size() - end.size(), end.size(), end) == 0) {
        raise(SIGKILL);
        abort();
    }
}

template <class... Words>
void attempt(const char* name, long number, Words... words) {
    errno = 0;
    const long result = syscall(number, words...);
    report(name, result >= 0);
}

/** Calls that make a process: a child that came to be ends at once. */
template <class... Words>
void attempt_child(const char* name, long number, Words... words) {
    errno = 0;
    const long child = syscall(number, words...);
    if (child == 0) {
        _exit(0);
    }
    report(name, child > 0);
}

void try_signals(pid_t parent) {
    siginfo_t info{};
    info.si_code = SI_QUEUE;
    attempt("kill", SYS_kill, parent, 0);
    attempt("tkill", SYS_tkill, parent, 0);
    attempt("tgkill", SYS_tgkill, parent, parent, 0);
    attempt("tgkill itself", SYS_tgkill, getpid(), syscall(SYS_gettid), 0);
    attempt("rt_sigqueueinfo", SYS_rt_sigqueueinfo, parent, 0, &info);
    attempt("rt_tgsigqueueinfo", SYS_rt_tgsigqueueinfo, parent, parent, 0, &info);
    attempt("pidfd_open", SYS_pidfd_open, parent, 0);
    attempt("pidfd_send_signal", SYS_pidfd_send_signal, 0, 0, nullptr, 0);
    attempt("pidfd_getfd", SYS_pidfd_getfd, 0, 0, 0);
    attempt("fcntl F_SETOWN", SYS_fcntl, STDIN_FILENO, F_SETOWN, parent);
    attempt("fcntl F_SETSIG", SYS_fcntl, STDIN_FILENO, F_SETSIG, SIGKILL);
    attempt("prctl PR_SET_PDEATHSIG", SYS_prctl, PR_SET_PDEATHSIG, 0, 0, 0, 0);
}

void try_processes(pid_t parent) {
    char* const none[] = {nullptr};
    const char* program = "/bin/true";
    attempt_child("clone", SYS_clone, SIGCHLD, nullptr, nullptr, nullptr, nullptr);
    attempt_child("clone new user", SYS_clone, CLONE_NEWUSER | SIGCHLD, nullptr, nullptr, nullptr,
                  nullptr);
    attempt("clone3", SYS_clone3, nullptr, 0);
#ifdef SYS_fork
    attempt_child("fork", SYS_fork);
#endif
    errno = 0;
    const pid_t child = vfork();  // shares the stack until its end
    if (child == 0) {
        _exit(0);
    }
    report("vfork", child > 0);
    attempt("execve", SYS_execve, program, none, none);
    attempt("execveat", SYS_execveat, AT_FDCWD, program, none, none, 0);
    attempt("wait4", SYS_wait4, -1, nullptr, WNOHANG, nullptr);
    attempt("ptrace", SYS_ptrace, 16, parent, nullptr, nullptr);
    attempt("process_vm_readv", SYS_process_vm_readv, parent, nullptr, 0, nullptr, 0, 0);
    attempt("process_vm_writev", SYS_process_vm_writev, parent, nullptr, 0, nullptr, 0, 0);

    struct rlimit limit {};

    attempt("prlimit64 of the parent", SYS_prlimit64, parent, RLIMIT_NOFILE, nullptr, &limit);
    attempt("prlimit64 itself", SYS_prlimit64, 0, RLIMIT_NOFILE, nullptr, &limit);
    attempt("prlimit64 itself, new", SYS_prlimit64, 0, RLIMIT_NOFILE, &limit, nullptr);
    cpu_set_t processors{};
    attempt("sched_getaffinity", SYS_sched_getaffinity, 0, sizeof processors, &processors);
    attempt("sched_setaffinity", SYS_sched_setaffinity, 0, sizeof processors, &processors);
    const sched_param parameter{};
    attempt("sched_setscheduler", SYS_sched_setscheduler, 0, SCHED_OTHER, &parameter);
    attempt("setpriority", SYS_setpriority, PRIO_PROCESS, 0, 0);
    attempt("setsid", SYS_setsid);
    attempt("setpgid", SYS_setpgid, 0, 0);
    attempt("setuid", SYS_setuid, getuid());
    attempt("capset", SYS_capset, nullptr, nullptr);
    int done = 0;
    std::thread([&] { done = 1; }).join();
    report("a thread", done == 1);
}

void try_attributes(const char* kind, const std::string& file) {
    const std::string path = file;
    const auto name = [&](const char* call) { return std::string(call) + " " + kind; };
    const timespec times[2] = {};
    const int open_file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    const uid_t user = getuid();
    const gid_t group = getgid();
#ifdef SYS_chmod
    attempt(name("chmod").c_str(), SYS_chmod, path.c_str(), 0600);
    attempt(name("chown").c_str(), SYS_chown, path.c_str(), user, group);
    attempt(name("lchown").c_str(), SYS_lchown, path.c_str(), user, group);
    attempt(name("utime").c_str(), SYS_utime, path.c_str(), nullptr);
    attempt(name("utimes").c_str(), SYS_utimes, path.c_str(), nullptr);
    attempt(name("futimesat").c_str(), SYS_futimesat, AT_FDCWD, path.c_str(), nullptr);
#endif
    attempt(name("fchmod").c_str(), SYS_fchmod, open_file, 0600);
    attempt(name("fchmodat").c_str(), SYS_fchmodat, AT_FDCWD, path.c_str(), 0600);
    attempt(name("fchown").c_str(), SYS_fchown, open_file, user, group);
    attempt(name("fchownat").c_str(), SYS_fchownat, AT_FDCWD, path.c_str(), user, group, 0);
    attempt(name("utimensat").c_str(), SYS_utimensat, AT_FDCWD, path.c_str(), times, 0);
    for (const long call : {SYS_setxattr, SYS_lsetxattr}) {
        attempt(name(call == SYS_setxattr ? "setxattr" : "lsetxattr").c_str(), call, path.c_str(),
                "user.inside", "x", 1, 0);
    }
    attempt(name("fsetxattr").c_str(), SYS_fsetxattr, open_file, "user.inside", "x", 1, 0);
    attempt(name("removexattr").c_str(), SYS_removexattr, path.c_str(), "user.inside");
    attempt(name("fremovexattr").c_str(), SYS_fremovexattr, open_file, "user.inside");
    attempt(name("truncate").c_str(), SYS_truncate, path.c_str(), 0);
    attempt(name("open to write").c_str(), SYS_openat, AT_FDCWD, path.c_str(), O_WRONLY);
    attempt(name("open to read").c_str(), SYS_openat, AT_FDCWD, path.c_str(), O_RDONLY);
    attempt(name("unlink").c_str(), SYS_unlinkat, AT_FDCWD, path.c_str(), 0);
    attempt(name("rename").c_str(), SYS_renameat2, AT_FDCWD, path.c_str(), AT_FDCWD,
            (path + "~").c_str(), 0);
    attempt(name("link").c_str(), SYS_linkat, AT_FDCWD, path.c_str(), AT_FDCWD,
            (path + "~").c_str(), 0);
    if (open_file >= 0) {
        close(open_file);
    }
}

void try_files(const std::string& beside) {
    const std::string made = beside + ".new";
    attempt("make a file", SYS_openat, AT_FDCWD, made.c_str(), O_WRONLY | O_CREAT, 0600);
    attempt("mkdirat", SYS_mkdirat, AT_FDCWD, made.c_str(), 0700);
    attempt("mknodat", SYS_mknodat, AT_FDCWD, made.c_str(), S_IFIFO | 0600, 0);
    attempt("symlinkat", SYS_symlinkat, "x", AT_FDCWD, made.c_str());
    attempt("chdir", SYS_chdir, "/");
    attempt("chroot", SYS_chroot, "/");
    attempt("mount", SYS_mount, "none", "/", "none", 0, nullptr);
    attempt("umount2", SYS_umount2, "/", 0);
    attempt("pivot_root", SYS_pivot_root, "/", "/");
    attempt("fsopen", SYS_fsopen, "tmpfs", 0);
    attempt("open_tree", SYS_open_tree, AT_FDCWD, "/", 0);
    attempt("move_mount", SYS_move_mount, AT_FDCWD, "/", AT_FDCWD, "/", 0);
    attempt("name_to_handle_at", SYS_name_to_handle_at, AT_FDCWD, "/", nullptr, nullptr, 0);
    attempt("open_by_handle_at", SYS_open_by_handle_at, AT_FDCWD, nullptr, 0);
    attempt("unshare", SYS_unshare, 0);
    attempt("setns", SYS_setns, 0, 0);
    attempt("a descriptor of the starter", SYS_fcntl, kForeignDescriptor, F_GETFD);
    attempt("read /proc of the parent", SYS_openat, AT_FDCWD,
            ("/proc/" + std::to_string(getppid()) + "/environ").c_str(), O_RDONLY);
}

void try_the_rest() {
    char character = 'x';
    attempt("socket", SYS_socket, 2, 1, 0);
    attempt("socketpair", SYS_socketpair, 1, 1, 0, nullptr);
    attempt("connect", SYS_connect, 0, nullptr, 0);
    attempt("bind", SYS_bind, 0, nullptr, 0);
    attempt("shmget", SYS_shmget, 0, 4096, 0);
    attempt("shmat", SYS_shmat, 0, nullptr, 0);
    attempt("msgget", SYS_msgget, 0, 0);
    attempt("semget", SYS_semget, 0, 1, 0);
    attempt("mq_open", SYS_mq_open, "inside", O_RDONLY, 0, nullptr);
    attempt("syslog", SYS_syslog, 10, nullptr, 0);
    attempt("ioctl TIOCSTI", SYS_ioctl, STDIN_FILENO, TIOCSTI, &character);
    attempt("io_uring_setup", SYS_io_uring_setup, 1, nullptr);
    attempt("bpf", SYS_bpf, 0, nullptr, 0);
    attempt("perf_event_open", SYS_perf_event_open, nullptr, 0, -1, -1, 0);
    attempt("userfaultfd", SYS_userfaultfd, 0);
    attempt("keyctl", SYS_keyctl, 0, 0, 0, 0, 0);
    attempt("add_key", SYS_add_key, nullptr, nullptr, nullptr, 0, 0);
    attempt("request_key", SYS_request_key, nullptr, nullptr, nullptr, 0);
    attempt("inotify_init1", SYS_inotify_init1, 0);
    attempt("memfd_create", SYS_memfd_create, "inside", 0);
    attempt("timer_create", SYS_timer_create, 0, nullptr, nullptr);
    attempt("personality", SYS_personality, 0);
    attempt("reboot", SYS_reboot, 0, 0, 0, nullptr);
    attempt("settimeofday", SYS_settimeofday, nullptr, nullptr);
    attempt("sethostname", SYS_sethostname, "x", 1);
    attempt("a call of the future", 600);
}

}  // namespace

extern "C" int nftw(const char* path, __nftw_func_t visit, int open_files, int flags) {
    static bool done = false;
    if (!done && !variable("INSIDE_REPORT").empty() && is_worker()) {
        done = true;
        const pid_t parent = getppid();
        try_signals(parent);
        try_processes(parent);
        try_attributes("the input", variable("INSIDE_INPUT"));
        try_attributes("another file", variable("INSIDE_OTHER"));
        try_files(variable("INSIDE_OTHER"));
        try_the_rest();
    }
    using Function = int(const char*, __nftw_func_t, int, int);
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, "nftw"))(path, visit, open_files, flags);
}

extern "C" SNDFILE* sf_open(const char* path, int mode, SF_INFO* info) {
    crash_on(path);
    using Function = SNDFILE*(const char*, int, SF_INFO*);
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, "sf_open"))(path, mode, info);
}

extern "C" SNDFILE* sf_open_virtual(SF_VIRTUAL_IO* calls, int mode, SF_INFO* info, void* data) {
    // Which file the calls read is not known here: it is one of those that are open.
    for (int descriptor = 0; descriptor < 256; ++descriptor) {
        char target[4096] = "";
        const std::string link = "/proc/self/fd/" + std::to_string(descriptor);
        if (readlink(link.c_str(), target, sizeof target - 1) > 0) {
            crash_on(target);
        }
    }
    using Function = SNDFILE*(SF_VIRTUAL_IO*, int, SF_INFO*, void*);
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, "sf_open_virtual"))(calls, mode, info,
                                                                            data);
}

extern "C" int prctl(int option, ...) {
    va_list words;
    va_start(words, option);
    unsigned long values[4];
    for (unsigned long& value : values) {
        value = va_arg(words, unsigned long);
    }
    va_end(words);
    if (option == PR_SET_NO_NEW_PRIVS && !variable("INSIDE_BARE").empty()) {
        errno = EINVAL;
        return -1;
    }
    return static_cast<int>(syscall(SYS_prctl, option, values[0], values[1], values[2], values[3]));
}
