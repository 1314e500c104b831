#pragma once

#include <string>

/**
 * The directory of one process's intermediate files. Either a new one of its own below the
 * platform's directory for temporary files, removed with all that is in it when this object goes;
 * or one that the user named, made when it is missing and kept.
 */
class PrivateDirectory {
  public:
    /** keep: the user's directory, or "" for one of our own. Throws std::runtime_error. */
    explicit PrivateDirectory(const std::string& keep = "");

    /** A folder of one's own is made in this one. */
    struct Below {
        std::string folder;
    };

    explicit PrivateDirectory(const Below& below);
    PrivateDirectory(const PrivateDirectory&) = delete;
    PrivateDirectory& operator=(const PrivateDirectory&) = delete;
    ~PrivateDirectory();

    /** Absolute, and ends with "/". */
    const std::string& path() const { return path_; }

  private:
    std::string path_;
    bool remove_;
};
