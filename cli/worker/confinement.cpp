#include "cli/worker/confinement.h"

#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "Common/files/descriptor.h"
#include "cli/worker/own_program.h"

#ifdef __linux__
#include <fcntl.h>
#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>

#include <cstddef>
#if __has_include(<linux/landlock.h>)
#include <linux/landlock.h>
#endif
#endif

/*
 * Three fences, each of which stands without the others. Resource limits are everywhere. Landlock
 * (Linux 5.19 for what is needed here: renames between folders) fences the files: rights are given
 * to folders and files that exist, everything else is refused with EACCES. A seccomp filter refuses
 * the calls that lead out of the process with EPERM. All are inherited by every thread and cannot
 * be taken back. What a worker does in its whole life costs some forty calls here, a tenth of a
 * millisecond.
 *
 * The folder of the output cannot be fenced finer: the output is made there under a hidden name,
 * and rights to a folder hold for all that stands in it.
 */

namespace cli {
namespace fs = std::filesystem;

namespace {

#if defined(__SANITIZE_ADDRESS__)
constexpr bool kSanitized = true;
#elif defined(__has_feature)
constexpr bool kSanitized = __has_feature(address_sanitizer);
#else
constexpr bool kSanitized = false;
#endif

constexpr rlim_t kGiB = rlim_t{1} << 30;

// Memory grows with a recording's length by a few doubles for each bin of 50 ms, and a library may
// hold the index of a container; threads and the allocator reserve addresses that they never use.
constexpr rlim_t kMostMemory = 4 * kGiB;
constexpr rlim_t kMemoryPerInputByte = 8;

// A decoded sound may be thousands of times as large as its file: FLAC and Opus pack pauses well.
constexpr rlim_t kMostFile = 8 * kGiB;
constexpr rlim_t kFileBytesPerInputByte = 10000;

constexpr rlim_t kMostOpenFiles = 256;

template <class Resource>
void lower(Resource resource, rlim_t most) {
    struct rlimit limit {};

    if (getrlimit(resource, &limit) == 0) {
        limit.rlim_max = std::min(limit.rlim_max, most);
        limit.rlim_cur = std::min(limit.rlim_cur, limit.rlim_max);
        setrlimit(resource, &limit);
    }
}

void limit_resources(const std::string& input) {
    struct stat status {};

    const rlim_t size = stat(input.c_str(), &status) == 0 ? static_cast<rlim_t>(status.st_size) : 0;
    if (!kSanitized) {  // the sanitizer reserves terabytes of addresses
        lower(RLIMIT_AS, kMostMemory + kMemoryPerInputByte * size);
    }
    signal(SIGXFSZ, SIG_IGN);  // the write fails then, and has its cause told
    lower(RLIMIT_FSIZE, kMostFile + kFileBytesPerInputByte * size);
    lower(RLIMIT_NOFILE, kMostOpenFiles);
}

#if defined(__linux__) && defined(LANDLOCK_ACCESS_FS_REFER)

// Since Linux 6.2 and 6.10; older headers do not know them.
constexpr std::uint64_t kTruncate = 1ULL << 14;
constexpr std::uint64_t kDeviceControl = 1ULL << 15;

constexpr std::uint64_t kRead =
    LANDLOCK_ACCESS_FS_EXECUTE | LANDLOCK_ACCESS_FS_READ_FILE | LANDLOCK_ACCESS_FS_READ_DIR;
constexpr std::uint64_t kFileRights = LANDLOCK_ACCESS_FS_EXECUTE | LANDLOCK_ACCESS_FS_READ_FILE |
                                      LANDLOCK_ACCESS_FS_WRITE_FILE | kTruncate | kDeviceControl;
constexpr std::uint64_t kRemove = LANDLOCK_ACCESS_FS_REMOVE_FILE | LANDLOCK_ACCESS_FS_REMOVE_DIR;
constexpr std::uint64_t kWork = LANDLOCK_ACCESS_FS_READ_FILE | LANDLOCK_ACCESS_FS_READ_DIR |
                                LANDLOCK_ACCESS_FS_WRITE_FILE | kTruncate | kRemove |
                                LANDLOCK_ACCESS_FS_MAKE_REG | LANDLOCK_ACCESS_FS_MAKE_DIR |
                                LANDLOCK_ACCESS_FS_REFER;

/** All the rights that the running kernel knows; 0 where it cannot do what is needed. */
std::uint64_t known_rights() {
    const long version =
        syscall(SYS_landlock_create_ruleset, nullptr, 0, LANDLOCK_CREATE_RULESET_VERSION);
    if (version < 2) {
        return 0;
    }
    std::uint64_t known = (LANDLOCK_ACCESS_FS_REFER << 1) - 1;
    known |= version >= 3 ? kTruncate : 0;
    known |= version >= 5 ? kDeviceControl : 0;
    return known;
}

class FileFence {
  public:
    FileFence() : known_(known_rights()) {
        if (known_ != 0) {
            landlock_ruleset_attr attributes{};
            attributes.handled_access_fs = known_;
            ruleset_ = static_cast<int>(
                syscall(SYS_landlock_create_ruleset, &attributes, sizeof attributes, 0));
        }
    }

    FileFence(const FileFence&) = delete;
    FileFence& operator=(const FileFence&) = delete;

    ~FileFence() {
        if (ruleset_ >= 0) {
            close(ruleset_);
        }
    }

    /** True when the rights to the path stand, or it is not there. */
    bool allow(const std::string& path, std::uint64_t rights) {
        const Descriptor at(path, O_PATH);

        struct stat status {};

        if (!at.is_open() || fstat(at.get(), &status) != 0) {
            return true;
        }
        landlock_path_beneath_attr rule{};
        rule.allowed_access = rights & known_ & (S_ISDIR(status.st_mode) ? ~0ULL : kFileRights);
        rule.parent_fd = at.get();
        return syscall(SYS_landlock_add_rule, ruleset_, LANDLOCK_RULE_PATH_BENEATH, &rule, 0) == 0;
    }

    bool close_in() const {
        return ruleset_ >= 0 && syscall(SYS_landlock_restrict_self, ruleset_, 0) == 0;
    }

    bool exists() const { return ruleset_ >= 0; }

  private:
    std::uint64_t known_;
    int ruleset_ = -1;
};

/** The folder above that of the program, where its module is, too; not where that is all there is.
 */
std::string own_tree() {
    const fs::path above = fs::path(own_folder()).parent_path();
    return above.has_relative_path() ? above.string() : "";
}

/** The nearest folder above a path that is there. */
std::string existing_folder(const std::string& path) {
    std::error_code ignored;
    fs::path at = fs::path(path).parent_path();
    while (!fs::exists(at, ignored) && at != at.parent_path()) {
        at = at.parent_path();
    }
    return at.string();
}

bool allow_system(FileFence& fence) {
    bool stands = true;
    for (const char* folder : {"/usr", "/lib", "/lib32", "/lib64", "/etc", "/opt", "/nix", "/gnu",
                               "/snap", "/run/current-system", "/sys/devices/system/cpu",
                               "/proc/self", "/proc/cpuinfo", "/dev/urandom", "/dev/zero"}) {
        stands = stands && fence.allow(folder, kRead);
    }
    stands = stands && fence.allow("/dev/null", kRead | LANDLOCK_ACCESS_FS_WRITE_FILE);
    const char* libraries = std::getenv("LD_LIBRARY_PATH");
    for (std::string rest = libraries != nullptr ? libraries : ""; !rest.empty();) {
        const std::size_t end = std::min(rest.find(':'), rest.size());
        stands = stands && (end == 0 || fence.allow(rest.substr(0, end), kRead));
        rest.erase(0, end + 1);
    }
    return stands;
}

bool fence_files(const Job& job) {
    FileFence fence;
    const std::string own = own_tree();
    bool stands = fence.exists() && allow_system(fence) && fence.allow(job.input, kRead) &&
                  (own.empty() || fence.allow(own, kRead));
    if (!job.output.empty()) {
        const std::string folder = existing_folder(job.output);
        const std::string topmost = existing_folder(job.new_folder);  // it may have to go again
        stands = stands && fence.allow(folder, kWork) &&
                 (job.new_folder.empty() || fence.allow(topmost, kWork));
    }
    if (!job.scratch.empty()) {
        // The last worker of a killed run removes the run's folder, too.
        const fs::path run = fs::path(job.scratch).parent_path();
        stands = stands && fence.allow(job.scratch, kWork) &&
                 fence.allow(run.string(), kRemove | LANDLOCK_ACCESS_FS_READ_DIR) &&
                 fence.allow(run.parent_path().string(), LANDLOCK_ACCESS_FS_REMOVE_DIR);
    }
    return stands && fence.close_in();
}

#else

bool fence_files(const Job& /*job*/) {
    return false;
}

#endif

#if defined(__linux__) && (defined(__x86_64__) || defined(__aarch64__))

#ifdef __x86_64__
constexpr std::uint32_t kArchitecture = AUDIT_ARCH_X86_64;
constexpr std::uint32_t kFirstOtherCall = 0x40000000;  // those of the x32 ABI
#else
constexpr std::uint32_t kArchitecture = AUDIT_ARCH_AARCH64;
constexpr std::uint32_t kFirstOtherCall = UINT32_MAX;
#endif

/** What leads out of the process, or around the fences. */
constexpr std::uint32_t kRefused[] = {SYS_execve,
                                      SYS_execveat,
                                      SYS_socket,
                                      SYS_connect,
                                      SYS_bind,
                                      SYS_listen,
                                      SYS_ptrace,
                                      SYS_process_vm_readv,
                                      SYS_process_vm_writev,
                                      SYS_kill,
                                      SYS_tkill,
                                      SYS_rt_sigqueueinfo,
                                      SYS_io_uring_setup,
                                      SYS_bpf,
                                      SYS_perf_event_open,
                                      SYS_userfaultfd,
                                      SYS_mount,
                                      SYS_unshare,
                                      SYS_setns,
                                      SYS_keyctl,
                                      SYS_add_key,
                                      SYS_request_key,
                                      SYS_pidfd_send_signal,
                                      SYS_pidfd_getfd,
                                      SYS_open_by_handle_at};

bool fence_calls() {
    constexpr std::size_t kCount = std::size(kRefused);
    constexpr std::size_t kHead = 4;
    // Loads the architecture and compares; loads the call's number; then a comparison for each
    // refused one, which jumps to the last line.
    sock_filter lines[kHead + 1 + kCount + 2] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, arch)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, kArchitecture, 1, 0),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EPERM),
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JGE | BPF_K, kFirstOtherCall, kCount + 1, 0)};
    for (std::size_t i = 0; i < kCount; ++i) {
        lines[kHead + 1 + i] = BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, kRefused[i],
                                        static_cast<std::uint8_t>(kCount - i), 0);
    }
    lines[kHead + 1 + kCount] = BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW);
    lines[kHead + 2 + kCount] = BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EPERM);
    const sock_fprog program{static_cast<unsigned short>(std::size(lines)), lines};
    return prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

#else

bool fence_calls() {
    return false;
}

#endif

}  // namespace

Confined confine(const Job& job) {
    limit_resources(job.input);
    Confined confined;
#ifdef __linux__
    if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0) {
        confined.files = fence_files(job);
        confined.network = fence_calls();
    }
#endif
    return confined;
}

}  // namespace cli
