#pragma once

#include <string>

#include "leveling/storage/private_directory.h"

/*
 * A run's temporary files lie in a directory that it keeps locked. Locks end with their process,
 * however it ends, so a directory without a lock has no owner any more and may be removed.
 */

namespace quorvane {

/**
 * The private directory of one run. It is locked for as long as the process lives, which is how a
 * later run knows that it was left behind.
 */
class ScratchDirectory {
  public:
    /**
     * In this folder, or with "" in that for temporary files. Throws std::runtime_error when it
     * cannot be made.
     */
    explicit ScratchDirectory(const std::string& folder = "");
    ~ScratchDirectory();
    ScratchDirectory(const ScratchDirectory&) = delete;
    ScratchDirectory& operator=(const ScratchDirectory&) = delete;

    /** Absolute, ends with "/". */
    const std::string& path() const { return directory_.path(); }

  private:
    void remove();

    void lock();

    PrivateDirectory directory_;
    int lock_ = -1;
};

/**
 * Removes the directories of this user's earlier runs that were killed, from this folder or with ""
 * from that for temporary files.
 */
void remove_stale_scratch_directories(const std::string& folder = "");

void remove_tree(const std::string& path);

/** True when this process could lock the open file: no other process holds the lock. */
bool try_lock(int descriptor);

}  // namespace quorvane
