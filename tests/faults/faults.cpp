/*
 * A library to be preloaded (LD_PRELOAD) that lets one call into the C library fail, so that the
 * programs can be shown to survive each:
 *
 *     FAULT_CALL   the kind of call: open read write seek stat close rename link unlink mkdir fsync
 *                  mmap malloc fork pipe; without it calls are only counted
 *     FAULT_NTH    which call of that kind fails, from 1
 *     FAULT_ERROR  errno as a number; 0: reads and writes do half of what was asked for
 *     FAULT_TRACE  set: the call that fails tells its callers on the standard error stream
 *     FAULT_STATE  a file of kKinds 64-bit counters and, last, of the faults injected, which all
 *                  processes of a run share, so that a fault meets the program or its workers
 *
 * Counting begins with main() and pauses while a library is loaded, since its initialisation, like
 * code before main(), cannot report errors. A close that fails has closed, as the kernel's does.
 */
#include <dirent.h>
#include <dlfcn.h>
#include <execinfo.h>
#include <fcntl.h>
#include <pthread.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

enum Kind {
    kOpen,
    kRead,
    kWrite,
    kSeek,
    kStat,
    kClose,
    kRename,
    kLink,
    kUnlink,
    kMkdir,
    kFsync,
    kMmap,
    kMalloc,
    kFork,
    kPipe,
    kKinds
};

constexpr const char* kNames[kKinds] = {"open",  "read",   "write",  "seek",   "stat",
                                        "close", "rename", "link",   "unlink", "mkdir",
                                        "fsync", "mmap",   "malloc", "fork",   "pipe"};

std::atomic<std::uint64_t>* state = nullptr;  // null until main()
int failing_kind = -1;
std::uint64_t failing_number = 0;
int failing_error = 0;
bool tracing = false;
std::atomic<int> loading{0};

template <class Function>
Function* real(Function* /*type*/, const char* name, std::atomic<void*>& known) {
    void* function = known.load();
    if (function == nullptr) {
        function = dlsym(RTLD_NEXT, name);
        known = function;
    }
    return reinterpret_cast<Function*>(function);
}

/**
 * The C library's own function behind the one of this name here. Several threads may look it up at
 * once: to wait for one of them would be a deadlock, as the loader holds its lock while it runs the
 * constructors of what is being loaded, which come here, too.
 */
#define REAL(name)                          \
    static std::atomic<void*> known_##name; \
    auto* const real_##name = real(static_cast<decltype(name)*>(nullptr), #name, known_##name)

/** Counts a call; true when it is the one to fail. */
bool is_hit(Kind kind) {
    if (state == nullptr || loading != 0) {
        return false;
    }
    const std::uint64_t number = ++state[kind];
    if (kind != failing_kind || number != failing_number) {
        return false;
    }
    ++state[kKinds];
    if (tracing) {
        void* callers[40];
        backtrace_symbols_fd(callers, backtrace(callers, 40), STDERR_FILENO);
    }
    return true;
}

bool fails(Kind kind) {
    if (is_hit(kind) && failing_error != 0) {
        errno = failing_error;
        return true;
    }
    return false;
}

/** For a read or write of so many bytes: -1 to fail, else the bytes to request. */
ssize_t allowed(Kind kind, std::size_t bytes) {
    if (!is_hit(kind)) {
        return static_cast<ssize_t>(bytes);
    }
    errno = failing_error;
    return failing_error != 0 ? -1 : static_cast<ssize_t>(bytes > 1 ? bytes / 2 : bytes);
}

void arm() {
    const char* path = std::getenv("FAULT_STATE");
    if (path == nullptr) {
        return;
    }
    const int file = static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, O_RDWR));
    REAL(mmap);
    void* const memory = real_mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    syscall(SYS_close, file);
    if (const char* call = std::getenv("FAULT_CALL")) {
        for (int kind = 0; kind < kKinds; ++kind) {
            failing_kind = std::strcmp(call, kNames[kind]) == 0 ? kind : failing_kind;
        }
        failing_number = std::strtoull(std::getenv("FAULT_NTH"), nullptr, 10);
        tracing = std::getenv("FAULT_TRACE") != nullptr;
        failing_error = std::atoi(std::getenv("FAULT_ERROR"));
    }
    if (memory != MAP_FAILED) {
        state = static_cast<std::atomic<std::uint64_t>*>(memory);
    }
}

int (*real_main)(int, char**, char**) = nullptr;

int armed_main(int argc, char** argv, char** environment) {
    arm();
    return real_main(argc, argv, environment);
}

}  // namespace

extern "C" {

int __libc_start_main(int (*main)(int, char**, char**),
                      int argc,
                      char** argv,
                      void (*init)(),
                      void (*fini)(),
                      void (*rtld_fini)(),
                      void* stack_end) {
    using Start = int (*)(int (*)(int, char**, char**), int, char**, void (*)(), void (*)(),
                          void (*)(), void*);
    real_main = main;
    const auto start = reinterpret_cast<Start>(dlsym(RTLD_NEXT, "__libc_start_main"));
    return start(armed_main, argc, argv, init, fini, rtld_fini, stack_end);
}

/** A function of the C library that returns `bad` when its turn to fail has come. */
#define FAULTY(result, name, kind, bad, parameters, arguments) \
    result name parameters {                                   \
        REAL(name);                                            \
        return fails(kind) ? bad : real_##name arguments;      \
    }

#define FAULTY_OPEN(name, prefix_parameters, prefix_arguments)                               \
    int name prefix_parameters {                                                             \
        REAL(name);                                                                          \
        va_list rest;                                                                        \
        va_start(rest, flags);                                                               \
        const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(rest, mode_t) : 0; \
        va_end(rest);                                                                        \
        return fails(kOpen) ? -1 : real_##name prefix_arguments;                             \
    }

FAULTY_OPEN(open, (const char* path, int flags, ...), (path, flags, mode))
FAULTY_OPEN(open64, (const char* path, int flags, ...), (path, flags, mode))
FAULTY_OPEN(openat, (int folder, const char* path, int flags, ...), (folder, path, flags, mode))
FAULTY_OPEN(openat64, (int folder, const char* path, int flags, ...), (folder, path, flags, mode))
FAULTY(FILE*, fopen, kOpen, nullptr, (const char* path, const char* mode), (path, mode))
FAULTY(FILE*, fopen64, kOpen, nullptr, (const char* path, const char* mode), (path, mode))
FAULTY(DIR*, opendir, kOpen, nullptr, (const char* path), (path))

#define FAULTY_TRANSFER(name, kind, parameters, arguments) \
    ssize_t name parameters {                              \
        REAL(name);                                        \
        const ssize_t some = allowed(kind, bytes);         \
        return some < 0 ? -1 : real_##name arguments;      \
    }

FAULTY_TRANSFER(read,
                kRead,
                (int file, void* to, std::size_t bytes),
                (file, to, static_cast<std::size_t>(some)))
FAULTY_TRANSFER(pread,
                kRead,
                (int file, void* to, std::size_t bytes, off_t at),
                (file, to, static_cast<std::size_t>(some), at))
FAULTY_TRANSFER(pread64,
                kRead,
                (int file, void* to, std::size_t bytes, off64_t at),
                (file, to, static_cast<std::size_t>(some), at))
FAULTY_TRANSFER(write,
                kWrite,
                (int file, const void* from, std::size_t bytes),
                (file, from, static_cast<std::size_t>(some)))
FAULTY_TRANSFER(pwrite,
                kWrite,
                (int file, const void* from, std::size_t bytes, off_t at),
                (file, from, static_cast<std::size_t>(some), at))
FAULTY_TRANSFER(pwrite64,
                kWrite,
                (int file, const void* from, std::size_t bytes, off64_t at),
                (file, from, static_cast<std::size_t>(some), at))
FAULTY(ssize_t, writev, kWrite, -1, (int file, const iovec* parts, int count), (file, parts, count))
FAULTY(ssize_t,
       copy_file_range,
       kWrite,
       -1,
       (int in, off64_t* in_at, int out, off64_t* out_at, std::size_t bytes, unsigned flags),
       (in, in_at, out, out_at, bytes, flags))
FAULTY(int, ftruncate, kWrite, -1, (int file, off_t size), (file, size))
FAULTY(int, fflush, kWrite, EOF, (FILE * file), (file))
FAULTY(std::size_t,
       fread,
       kRead,
       0,
       (void* to, std::size_t size, std::size_t count, FILE* file),
       (to, size, count, file))
FAULTY(std::size_t,
       fwrite,
       kWrite,
       0,
       (const void* from, std::size_t size, std::size_t count, FILE* file),
       (from, size, count, file))

FAULTY(off_t, lseek, kSeek, -1, (int file, off_t at, int from), (file, at, from))
FAULTY(off64_t, lseek64, kSeek, -1, (int file, off64_t at, int from), (file, at, from))
FAULTY(int, fseek, kSeek, -1, (FILE * file, long at, int from), (file, at, from))
FAULTY(int, fseeko, kSeek, -1, (FILE * file, off_t at, int from), (file, at, from))

FAULTY(int, stat, kStat, -1, (const char* path, struct stat* to), (path, to))
FAULTY(int, lstat, kStat, -1, (const char* path, struct stat* to), (path, to))
FAULTY(int, fstat, kStat, -1, (int file, struct stat* to), (file, to))
FAULTY(int,
       fstatat,
       kStat,
       -1,
       (int folder, const char* path, struct stat* to, int flags),
       (folder, path, to, flags))
FAULTY(int, stat64, kStat, -1, (const char* path, struct stat64* to), (path, to))
FAULTY(int, fstat64, kStat, -1, (int file, struct stat64* to), (file, to))
FAULTY(int,
       statx,
       kStat,
       -1,
       (int folder, const char* path, int flags, unsigned mask, struct statx* to),
       (folder, path, flags, mask, to))
FAULTY(int, statvfs, kStat, -1, (const char* path, struct statvfs* to), (path, to))
FAULTY(int, access, kStat, -1, (const char* path, int mode), (path, mode))

int close(int file) {
    REAL(close);
    const bool bad = fails(kClose);
    const int error = errno;
    const int result = real_close(file);
    errno = bad ? error : errno;
    return bad ? -1 : result;
}

int fclose(FILE* file) {
    REAL(fclose);
    const bool bad = fails(kClose);
    const int error = errno;
    const int result = real_fclose(file);
    errno = bad ? error : errno;
    return bad ? EOF : result;
}

FAULTY(int, rename, kRename, -1, (const char* from, const char* to), (from, to))
FAULTY(int,
       renameat,
       kRename,
       -1,
       (int in, const char* from, int out, const char* to),
       (in, from, out, to))
FAULTY(int,
       renameat2,
       kRename,
       -1,
       (int in, const char* from, int out, const char* to, unsigned flags),
       (in, from, out, to, flags))
FAULTY(int, link, kLink, -1, (const char* from, const char* to), (from, to))
FAULTY(int,
       linkat,
       kLink,
       -1,
       (int in, const char* from, int out, const char* to, int flags),
       (in, from, out, to, flags))
FAULTY(int, unlink, kUnlink, -1, (const char* path), (path))
FAULTY(int, unlinkat, kUnlink, -1, (int folder, const char* path, int flags), (folder, path, flags))
FAULTY(int, remove, kUnlink, -1, (const char* path), (path))
FAULTY(int, rmdir, kUnlink, -1, (const char* path), (path))
FAULTY(int, mkdir, kMkdir, -1, (const char* path, mode_t mode), (path, mode))
FAULTY(char*, mkdtemp, kMkdir, nullptr, (char* path), (path))
FAULTY(int, fsync, kFsync, -1, (int file), (file))
FAULTY(int, fdatasync, kFsync, -1, (int file), (file))
FAULTY(void*,
       mmap,
       kMmap,
       MAP_FAILED,
       (void* at, std::size_t size, int protection, int flags, int file, off_t offset),
       (at, size, protection, flags, file, offset))
FAULTY(int, pipe, kPipe, -1, (int* ends), (ends))
FAULTY(int, pipe2, kPipe, -1, (int* ends, int flags), (ends, flags))
FAULTY(pid_t, fork, kFork, -1, (), ())

void* dlopen(const char* path, int mode) {
    REAL(dlopen);
    ++loading;
    void* const library = real_dlopen(path, mode);
    --loading;
    return library;
}

// These return the error.
FAULTY(int,
       posix_spawn,
       kFork,
       errno,
       (pid_t * pid,
        const char* path,
        const posix_spawn_file_actions_t* actions,
        const posix_spawnattr_t* attributes,
        char* const* argv,
        char* const* environment),
       (pid, path, actions, attributes, argv, environment))
FAULTY(int,
       pthread_create,
       kFork,
       errno,
       (pthread_t * thread, const pthread_attr_t* attributes, void* (*run)(void*), void* context),
       (thread, attributes, run, context))

// dlsym allocates: until it has answered, the C library's second names for these serve.
void* __libc_malloc(std::size_t);
void* __libc_calloc(std::size_t, std::size_t);
void* __libc_realloc(void*, std::size_t);
void* __libc_memalign(std::size_t, std::size_t);

void* malloc(std::size_t size) {
    return fails(kMalloc) ? nullptr : __libc_malloc(size);
}

void* calloc(std::size_t count, std::size_t size) {
    return fails(kMalloc) ? nullptr : __libc_calloc(count, size);
}

void* realloc(void* block, std::size_t size) {
    return fails(kMalloc) ? nullptr : __libc_realloc(block, size);
}

void* aligned_alloc(std::size_t alignment, std::size_t size) {
    return fails(kMalloc) ? nullptr : __libc_memalign(alignment, size);
}

int posix_memalign(void** block, std::size_t alignment, std::size_t size) {
    if (fails(kMalloc)) {
        return ENOMEM;
    }
    *block = __libc_memalign(alignment, size);
    return *block != nullptr ? 0 : ENOMEM;
}

}  // extern "C"
