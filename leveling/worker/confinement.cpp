#include "leveling/worker/confinement.h"

#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "Common/files/descriptor.h"
#include "leveling/worker/call_filter.h"
#include "leveling/worker/media_module.h"
#include "leveling/worker/own_program.h"
#include "leveling/worker/sanitized.h"

#ifdef __linux__
#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/syscall.h>

#if __has_include(<linux/landlock.h>)
#include <linux/landlock.h>
#endif
#endif

/*
 * Three fences, each of which stands without the others. Resource limits are everywhere. Landlock
 * (Linux 5.19 for what is needed here: renames between folders) fences the files: rights are given
 * to folders and files that exist, everything else is refused with EACCES. A seccomp filter
 * (call_filter.cpp) allows the system calls of a worker and refuses all others. All are inherited
 * by every thread and cannot be taken back. What a worker does in its whole life costs some forty
 * calls here, a tenth of a millisecond.
 *
 * The output's folder is not open to the worker: its parent makes the part there, an empty file,
 * and gives it its name in the end.
 */

namespace quorvane {
namespace fs = std::filesystem;

namespace {

constexpr rlim_t kGiB = rlim_t{1} << 30;

// Memory grows with a recording's length by a few doubles for each bin of 50 ms, and a library may
// hold the index of a container; threads and the allocator reserve addresses that they never use.
constexpr rlim_t kMostMemory = 4 * kGiB;
constexpr rlim_t kMemoryPerInputByte = 8;

// A decoded sound may be thousands of times as large as its file: FLAC and Opus pack pauses well.
constexpr rlim_t kMostFile = 8 * kGiB;
constexpr rlim_t kFileBytesPerInputByte = 10000;

constexpr rlim_t kMostOpenFiles = 256;

// Of processor time, for looks at headers, each of which takes milliseconds.
constexpr rlim_t kMostLookSeconds = 120;

template <class Resource>
void lower(Resource resource, rlim_t most) {
    struct rlimit limit {};

    if (getrlimit(resource, &limit) == 0) {
        limit.rlim_max = std::min(limit.rlim_max, most);
        limit.rlim_cur = std::min(limit.rlim_cur, limit.rlim_max);
        setrlimit(resource, &limit);
    }
}

rlim_t size_of(const std::string& path) {
    struct stat status {};

    return stat(path.c_str(), &status) == 0 ? static_cast<rlim_t>(status.st_size) : 0;
}

void limit_resources(const std::vector<Job>& jobs) {
    rlim_t size = 0;
    for (const Job& job : jobs) {
        size = std::max(size, size_of(job.input));
    }
    if (!kSanitized) {  // the sanitizer reserves terabytes of addresses
        lower(RLIMIT_AS, kMostMemory + kMemoryPerInputByte * size);
    }
    signal(SIGXFSZ, SIG_IGN);  // the write fails then, and has its cause told
    lower(RLIMIT_FSIZE, kMostFile + kFileBytesPerInputByte * size);
    lower(RLIMIT_NOFILE, kMostOpenFiles);
    if (jobs.front().scratch.empty()) {
        lower(RLIMIT_CPU, kMostLookSeconds);
    }
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
constexpr std::uint64_t kFill =
    LANDLOCK_ACCESS_FS_READ_FILE | LANDLOCK_ACCESS_FS_WRITE_FILE | kTruncate;
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

    /** True when the rights to the path stand, or it is not there. Links are followed. */
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

/** The program and its module: what is installed beside them is not ours to read. */
bool allow_own(FileFence& fence) {
    const std::string module = media_module_path();
    return fence.allow(own_program(), kRead) &&
           (module.empty() || fence.allow(fs::path(module).parent_path().string(), kRead));
}

bool allow_job(FileFence& fence, const Job& job) {
    bool stands = fence.allow(job.input, kRead);
    if (!job.excerpts_for.empty()) {
        stands = stands && fence.allow(job.output, kRead);
    }
    if (!job.part.empty()) {
        stands = stands && fence.allow(job.part, kFill);
    }
    if (!job.scratch.empty()) {
        // The last worker of a killed run removes the run's folder, too.
        const fs::path run = fs::path(job.scratch).parent_path();
        stands = stands && fence.allow(job.scratch, kWork) &&
                 fence.allow(run.string(), kRemove | LANDLOCK_ACCESS_FS_READ_DIR) &&
                 fence.allow(run.parent_path().string(), LANDLOCK_ACCESS_FS_REMOVE_DIR);
    }
    return stands;
}

bool fence_files(const std::vector<Job>& jobs) {
    FileFence fence;
    const bool stands = fence.exists() && allow_system(fence) && allow_own(fence) &&
                        std::all_of(jobs.begin(), jobs.end(),
                                    [&](const Job& job) { return allow_job(fence, job); });
    return stands && fence.close_in();
}

#else

bool fence_files(const std::vector<Job>& /*jobs*/) {
    return false;
}

#endif

}  // namespace

Confined confine(const std::vector<Job>& jobs) {
    limit_resources(jobs);
    Confined confined;
#ifdef __linux__
    if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0) {
        confined.files = fence_files(jobs);
        confined.calls = fence_calls();
    }
#endif
    return confined;
}

}  // namespace quorvane
