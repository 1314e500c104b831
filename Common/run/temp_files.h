#pragma once

#include <string>
#include <vector>

/**
 * The intermediate files of one run. A file is marked when no later step reads it, and what is
 * marked is deleted at the next opportunity, so that the disk holds two or three of them at a time.
 * Destroying the list deletes no file: after a failure the files help to find the cause.
 */
class TempFileList {
  public:
    void add(const std::string& path) { entries_.push_back({path, false}); }

    /** Marks every entry of that path. */
    void markForDeletion(const std::string& path);

    /** Removes the marked files; one that cannot be removed stays. */
    void deleteMarked();

  private:
    struct Entry {
        std::string path;
        bool delete_now;
    };

    std::vector<Entry> entries_;
};
