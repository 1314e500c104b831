#pragma once

#include <sys/types.h>

#include <cstddef>
#include <string>

namespace level_engine {

/** A file that closes itself. */
class Descriptor {
  public:
    /** Opens path; on failure is_open is false and errno is set. */
    explicit Descriptor(const std::string& path, int flags, mode_t mode = 0);

    /** Takes over an open one, or -1. */
    explicit Descriptor(int descriptor) : descriptor_(descriptor) {}

    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor();

    bool is_open() const { return descriptor_ >= 0; }

    int get() const { return descriptor_; }

  private:
    int descriptor_;
};

/** Both go on after a signal, and return false, with the reason in errno, on an error. */
bool write_all(int descriptor, const char* bytes, std::size_t count);
bool copy_all(int from, int to);

/**
 * Waits until an open file is on the disk. Returns false with errno set on an error; some file
 * systems report a full disk only here. A file system without sync is not an error.
 */
bool sync_to_disk(int descriptor);

/** Starts to write the file to the disk without waiting, so that sync_to_disk waits less. */
void start_sync(int descriptor);

/** The same for the folder of a path: without it a power cut may lose the file's name. */
bool sync_folder_of(const std::string& path);

}  // namespace level_engine

using level_engine::copy_all;
using level_engine::Descriptor;
using level_engine::start_sync;
using level_engine::sync_folder_of;
using level_engine::sync_to_disk;
using level_engine::write_all;
