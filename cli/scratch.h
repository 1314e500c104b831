#pragma once

#include <string>

namespace cli {

// A private directory for the files of one run, removed at the end with all that is in it. It is
// locked for as long as the process lives, which is how a later run knows that it was left behind.
class ScratchDirectory {
  public:
    // Throws std::system_error when it cannot be made.
    ScratchDirectory();
    ~ScratchDirectory();
    ScratchDirectory(const ScratchDirectory&) = delete;
    ScratchDirectory& operator=(const ScratchDirectory&) = delete;

    const std::string& path() const { return path_; }

  private:
    std::string path_;
    int lock_ = -1;
};

// Removes the directories of this user's earlier runs that were killed.
void remove_stale_scratch_directories();

void remove_tree(const std::string& path);

// True when this process could lock the open file: nobody else holds it.
bool try_lock(int descriptor);

}  // namespace cli
