#include "leveling/watch/mounts.h"

#include <sys/stat.h>
#ifdef __linux__
#include <sys/vfs.h>
#endif

#include <array>
#include <cstdint>
#include <filesystem>
#include <limits>
#include <system_error>
#include <utility>

namespace quorvane {
namespace fs = std::filesystem;

namespace {

/** The device that a folder is on; -1 where it is not there. */
std::int64_t device_of(const fs::path& path) {
    struct stat status {};

    return stat(path.c_str(), &status) == 0 ? static_cast<std::int64_t>(status.st_dev) : -1;
}

/** The path, or the nearest folder above it that exists. */
fs::path existing_part(const std::string& path) {
    std::error_code error;
    fs::path existing = fs::weakly_canonical(fs::absolute(path, error), error);
    while (!existing.empty() && !fs::exists(existing, error) && existing.has_relative_path()) {
        existing = existing.parent_path();
    }
    return existing;
}

}  // namespace

std::string mount_point_of(const std::string& path) {
    fs::path point = existing_part(path);
    while (point.has_relative_path() && device_of(point) == device_of(point.parent_path())) {
        point = point.parent_path();
    }
    return point.string();
}

bool MountedFolder::is_mounted() const {
    const fs::path point = mount_point_;
    const std::int64_t device = device_of(point);
    return device >= 0 && (!point.has_relative_path() || device != device_of(point.parent_path()));
}

std::string network_of_type(std::uint32_t magic) {
    constexpr std::array<std::pair<std::uint32_t, const char*>, 11> kNetworks = {{
        {0x6969u, "NFS"},
        {0x517bu, "SMB"},
        {0xff534d42u, "SMB"},
        {0xfe534d42u, "SMB"},
        {0x65735546u, "FUSE"},
        {0x01021997u, "9p"},
        {0x00c36400u, "Ceph"},
        {0x5346414fu, "AFS"},
        {0x47504653u, "GPFS"},
        {0x0bd00bd0u, "Lustre"},
        {0x19830326u, "BeeGFS"},
    }};
    for (const auto& [number, name] : kNetworks) {
        if (number == magic) {
            return name;
        }
    }
    return "";
}

std::string network_file_system(const std::string& path) {
#ifdef __linux__
    struct statfs status {};

    if (statfs(path.c_str(), &status) == 0) {
        return network_of_type(static_cast<std::uint32_t>(status.f_type));
    }
#else
    static_cast<void>(path);
#endif
    return "";
}

double free_bytes(const std::string& path) {
    std::error_code error;
    const fs::space_info space = fs::space(existing_part(path), error);
    return error ? std::numeric_limits<double>::infinity() : static_cast<double>(space.available);
}

}  // namespace quorvane
