/*
 * A library to be preloaded (LD_PRELOAD) that lets a batch's workers run in valgrind. It starts
 * them as valgrind's, whose options are in VALGRIND_OPTS, with the program in MEMCHECK_PROGRAM, and
 * has the fences of a worker stand open: valgrind needs more memory and more files than they allow.
 */
#include <dlfcn.h>
#include <spawn.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdlib>

namespace {

constexpr int kArguments = 6;  // of a system call

template <class Function>
Function* real(Function* /*type*/, const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

extern "C" {

int posix_spawn(pid_t* pid,
                const char* /*path*/,
                const posix_spawn_file_actions_t* actions,
                const posix_spawnattr_t* attributes,
                char* const* argv,
                char* const* environment) {
    char name[] = "valgrind";
    char* const words[] = {name, std::getenv("MEMCHECK_PROGRAM"), argv[1], nullptr};
    return posix_spawnp(pid, name, actions, attributes, words, environment);
}

int setrlimit(__rlimit_resource_t /*resource*/, const rlimit* /*limit*/) {
    return 0;
}

int prctl(int option, ...) {
    unsigned long values[kArguments - 1];
    va_list rest;
    va_start(rest, option);
    for (unsigned long& value : values) {
        value = va_arg(rest, unsigned long);
    }
    va_end(rest);
    return option == PR_SET_SECCOMP ? 0
                                    : real(&prctl, "prctl")(option, values[0], values[1], values[2],
                                                            values[3], values[4]);
}

long syscall(long number, ...) {
    unsigned long values[kArguments];
    va_list rest;
    va_start(rest, number);
    for (unsigned long& value : values) {
        value = va_arg(rest, unsigned long);
    }
    va_end(rest);
    if (number == SYS_landlock_create_ruleset) {
        errno = ENOSYS;
        return -1;
    }
    return real(&syscall, "syscall")(number, values[0], values[1], values[2], values[3], values[4],
                                     values[5]);
}

}  // extern "C"
