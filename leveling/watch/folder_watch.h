#pragma once

#include <poll.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <unordered_map>

#include "leveling/watch/mounts.h"

namespace quorvane {

/**
 * Reports the files of a folder, and of all folders below it, as they come. The kernel reports them
 * where it can (inotify); a search at intervals does where it cannot: on file systems that other
 * machines write to, on systems without inotify, and when the limit of watched folders is reached.
 * Hidden entries are left out. Links to folders are followed, each folder is watched once.
 *
 * A watch sleeps in the caller's poll(): wait for descriptors() until next_look(), then call
 * read().
 */
class FolderWatch {
  public:
    using Clock = std::chrono::steady_clock;

    enum class Change {
        Closed,    // its writer closed it, or it was renamed into place
        Appeared,  // a new name; if a process is writing the file, Closed will follow
        Found,     // by a search
        Gone       // removed or renamed
    };
    using Report = std::function<void(const std::string& path, Change change)>;

    /** What it costs to learn of changes. */
    enum class Source {
        Kernel,
        Search,  // at intervals; why_search() says why
        None     // the folder is gone; it is looked for
    };

    /** Names the network file system of a folder; "": the kernel reports all changes in it. */
    using Network = std::function<std::string(const std::string& folder)>;

    /** left_out: a folder below that is not watched; empty: none. */
    FolderWatch(std::string folder,
                const std::string& left_out,
                Report report,
                Network network = network_file_system);
    ~FolderWatch();
    FolderWatch(const FolderWatch&) = delete;
    FolderWatch& operator=(const FolderWatch&) = delete;

    /** Begins again: watches all folders and reports every file there is. */
    void look();

    /**
     * Takes what the kernel reported, and searches when it is time to. polled: descriptors() as
     * poll() returned them.
     */
    void read(const pollfd* polled);

    std::array<pollfd, 2> descriptors() const;

    std::optional<Clock::time_point> next_look() const { return next_look_; }

    Source source() const { return source_; }

    const std::string& why_search() const { return why_search_; }

    /** Whether the folder is there, with the file system that it was on. */
    bool is_there() const;

    std::size_t folders() const { return folders_.size(); }

  private:
    struct Folder {
        std::string path;
        std::uint64_t device;
        std::uint64_t inode;
    };

    void stop_watching();
    void need_search(const std::string& why);
    bool enter(const std::string& folder);
    bool add_folder(const std::string& folder);
    void list(const std::string& folder);
    void leave(const std::string& folder);
    bool read_events();
    bool take_event(std::uint32_t mask, int watch, const std::string& name);
    bool folders_moved() const;

    const std::string folder_;
    const MountedFolder mounted_;
    std::string left_out_;
    Report report_;
    Network network_;
    Source source_ = Source::None;
    std::string why_search_;
    std::optional<Clock::time_point> next_look_;
    int events_ = -1;                          // of inotify
    int mounts_ = -1;                          // the table of mounts, which reports its changes
    std::unordered_map<int, Folder> folders_;  // by the kernel's number of the watch
    std::unordered_map<std::string, int> watch_of_;
};

}  // namespace quorvane
