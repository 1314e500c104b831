#pragma once

#include <cstdint>
#include <string>

namespace quorvane {

/** The mount point that a path lies below, links followed; of a missing path, its folder's. */
std::string mount_point_of(const std::string& path);

/**
 * A folder whose file system may go and come back, as a disk or a server does. While it is gone its
 * mount point is an empty folder of another file system, in which nothing is to be read or written.
 */
class MountedFolder {
  public:
    explicit MountedFolder(const std::string& path) : mount_point_(mount_point_of(path)) {}

    /** Whether the file system that was there at the beginning, or one like it, is mounted. */
    bool is_mounted() const;

    const std::string& mount_point() const { return mount_point_; }

  private:
    std::string mount_point_;
};

/**
 * The name of a file system that does not report what other machines change in it ("NFS", "SMB"),
 * "" for any other. magic: its type, as statfs(2) returns it.
 */
std::string network_of_type(std::uint32_t magic);

/** The same for the file system of a path. */
std::string network_file_system(const std::string& path);

/** Bytes that are free to this user on the file system of a path or of its nearest folder. */
double free_bytes(const std::string& path);

}  // namespace quorvane
