#pragma once

#include <sys/types.h>

#include <map>
#include <stdexcept>
#include <string>
#include <unordered_map>
#include <utility>

namespace quorvane {

/** One spelling for every way to write a path that may not exist yet, with all links followed. */
std::string resolved_path(const std::string& path);

/** The same of many files, most of which share their folders: a folder is resolved once. */
class PathResolver {
  public:
    std::string resolved(const std::string& path);

    /** Follows the links of the folder only: if the name itself is a link, that link is meant. */
    std::string placed(const std::string& path);

  private:
    std::map<std::string, std::string> folders_;
};

/** What a run does with one of its files. */
enum class FileUse {
    Read,     // an input, or a list, a plan or an options file
    Output,   // written under a hidden name that becomes the output's
    Skipped,  // a recording that stays as it is; it may be the output of another one
    Written,  // whatever else the run writes: log, JSON, report, records
    Stream,   // where a standard stream of the run goes
};

/** One file in two uses that exclude each other. what() is the sentence for the user. */
class FileClash : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/**
 * All files that a run reads and writes. What a run writes must be no other file of the run, by
 * whatever name: files that exist are compared by device and inode, so links of both kinds are
 * seen through, and paths that do not exist yet by their resolved spelling. Pipes and devices hold
 * nothing that could be overwritten and may be named several times. Two outputs may be hard links
 * to one file, since each gets a new file under its own name.
 */
class RunFiles {
  public:
    /**
     * `name` says what the file is in a message: "the input", "--log". Both texts must outlive this
     * object. Throws FileClash when the file is in a use that excludes this one. Add skipped files
     * last: only the first use of a file is kept.
     */
    void add(FileUse use, const char* name, const std::string& path);

    /**
     * Throws FileClash when a file that is only read is one that was added to be written. Unlike
     * add(), this keeps nothing, so that a million files take no memory.
     */
    void check_read(const char* name, const std::string& path);

    /**
     * A folder in which the run writes pages named *.html; which ones is only known as they are
     * written. Call it before the other files are added.
     */
    void add_page_folder(const char* name, const std::string& path);

    /** A stream of this process, by its descriptor. */
    void add_stream(const char* name, int descriptor);

  private:
    struct Entry {
        FileUse use;
        const char* name;
        const std::string* path;
    };

    using Identity = std::pair<dev_t, ino_t>;

    void add(const Entry& entry, const Identity& identity);
    [[noreturn]] static void clash(const Entry& one, const Entry& other);
    void refuse_page(const Entry& entry);

    PathResolver resolver_;
    std::map<Identity, Entry> by_identity_;
    std::unordered_map<std::string, Entry> by_place_;
    const char* page_folder_name_ = nullptr;
    std::string page_folder_;
};

}  // namespace quorvane
