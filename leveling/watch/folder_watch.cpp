#include "leveling/watch/folder_watch.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <system_error>
#include <utility>
#include <vector>

#ifdef __linux__
#include <sys/inotify.h>
#endif

/*
 * A folder is watched before it is listed, so that a file which comes in between is reported twice
 * and never missed. Whatever makes the picture doubtful (a full event queue, a changed mount) has
 * one answer: everything is watched and listed again. Who takes the reports knows which files it
 * has seen in the same state.
 */

namespace quorvane {
namespace fs = std::filesystem;

namespace {

constexpr std::size_t kEventBytes = 65536;  // read at once
// Between two searches, where the kernel does not report.
constexpr std::chrono::seconds kSearchEvery{5};
// While the folder is gone.
constexpr std::chrono::seconds kLookForFolderEvery{2};

/** Many programs write under a hidden name first and rename the file when it is complete. */
bool is_hidden(const std::string& name) {
    return name.empty() || name.front() == '.';
}

#ifdef __linux__
// IN_ONLYDIR: a file that has taken the folder's name is not watched.
constexpr std::uint32_t kEvents = IN_CREATE | IN_CLOSE_WRITE | IN_MOVED_TO | IN_MOVED_FROM |
                                  IN_DELETE | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;
#endif

}  // namespace

FolderWatch::FolderWatch(std::string folder,
                         const std::string& left_out,
                         Report report,
                         Network network)
    : folder_(std::move(folder)),
      mounted_(folder_),
      report_(std::move(report)),
      network_(std::move(network)) {
    std::error_code error;
    if (!left_out.empty()) {
        // Resolved, so that a link to it is left out as well.
        left_out_ = fs::weakly_canonical(left_out, error).string();
    }
#ifdef __linux__
    // Its changes are reported by poll(); -1 on other systems.
    mounts_ = open("/proc/self/mounts", O_RDONLY | O_CLOEXEC);
#endif
}

FolderWatch::~FolderWatch() {
    stop_watching();
    if (mounts_ >= 0) {
        close(mounts_);
    }
}

void FolderWatch::stop_watching() {
    // Closing the descriptor ends all of its watches.
    if (events_ >= 0) {
        close(std::exchange(events_, -1));
    }
    folders_.clear();
    watch_of_.clear();
}

bool FolderWatch::is_there() const {
    std::error_code error;
    return fs::is_directory(folder_, error) && mounted_.is_mounted();
}

/** The first reason is kept. */
void FolderWatch::need_search(const std::string& why) {
    if (source_ != Source::Search) {
        source_ = Source::Search;
        why_search_ = why;
    }
}

void FolderWatch::look() {
    stop_watching();
    next_look_.reset();
    why_search_.clear();
    if (!is_there()) {
        source_ = Source::None;
        next_look_ = Clock::now() + kLookForFolderEvery;
        return;
    }
    // need_search() changes this where the kernel cannot report.
    source_ = Source::Kernel;
#ifdef __linux__
    events_ = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    if (events_ < 0) {
        need_search(fmt::format("inotify cannot be used: {}", std::strerror(errno)));
    }
#else
    need_search("this system's notifications are not used yet");
#endif
    enter(folder_);
    if (source_ == Source::Search) {
        next_look_ = Clock::now() + kSearchEvery;
    }
}

/** Watches and lists a folder with everything below it; false when it cannot be listed. */
bool FolderWatch::enter(const std::string& folder) {
    if (!add_folder(folder)) {
        return false;
    }
    list(folder);
    return true;
}

/** False when the folder is watched already, is left out, or is not there. */
bool FolderWatch::add_folder(const std::string& folder) {
    std::error_code error;

    struct stat status {};

    if (stat(folder.c_str(), &status) != 0 || !S_ISDIR(status.st_mode) ||
        (!left_out_.empty() && fs::canonical(folder, error).string() == left_out_)) {
        return false;
    }
    if (const std::string network = network_(folder); !network.empty()) {
        need_search(fmt::format("{} is on {}, which does not report what other machines write",
                                folder, network));
    }
    int watch = -1;
#ifdef __linux__
    if (events_ >= 0) {
        watch = inotify_add_watch(events_, folder.c_str(), kEvents);
        if (watch < 0 && errno == ENOSPC) {
            need_search(
                "the kernel watches no more folders for this user (the sysctl "
                "fs.inotify.max_user_watches sets how many)");
        }
    }
#endif
    // Without the kernel's number the folder gets one of ours, below -1.
    if (watch < 0) {
        // Found again by its inode, so that links that lead in a circle end.
        watch = -2 - static_cast<int>(folders_.size());
        for (const auto& [number, known] : folders_) {
            if (known.device == status.st_dev && known.inode == status.st_ino) {
                return false;
            }
        }
    }
    // The kernel has one number for each inode, so a folder that is reached twice is not new.
    const bool is_new =
        folders_.emplace(watch, Folder{folder, status.st_dev, status.st_ino}).second;
    if (is_new) {
        watch_of_[folder] = watch;
    }
    return is_new;
}

void FolderWatch::list(const std::string& folder) {
    std::error_code error;
    std::vector<std::string> folders;
    fs::directory_iterator entries(folder, error);
    for (const fs::directory_iterator end; !error && entries != end; entries.increment(error)) {
        const std::string name = entries->path().filename().string();
        // An entry that cannot be looked at is passed over.
        std::error_code unreadable;
        if (is_hidden(name)) {
            continue;
        }
        if (entries->is_directory(unreadable)) {
            folders.push_back(entries->path().string());
        } else if (entries->is_regular_file(unreadable)) {
            report_(entries->path().string(), Change::Found);
        }
    }
    // After the listing, so that one folder is open at a time.
    for (const std::string& below : folders) {
        enter(below);
    }
}

/** Stops watching a folder that was renamed or removed, and those below it. */
void FolderWatch::leave(const std::string& folder) {
    // With the slash: "talks-2" is not below "talks".
    const std::string below = folder + "/";
    for (auto entry = watch_of_.begin(); entry != watch_of_.end();) {
        if (entry->first == folder || entry->first.rfind(below, 0) == 0) {
#ifdef __linux__
            if (events_ >= 0 && entry->second >= 0) {
                inotify_rm_watch(events_, entry->second);
            }
#endif
            folders_.erase(entry->second);
            entry = watch_of_.erase(entry);
        } else {
            ++entry;
        }
    }
}

std::array<pollfd, 2> FolderWatch::descriptors() const {
    // The table of mounts is always readable; a change of it is an exceptional condition.
    return {pollfd{events_, POLLIN, 0}, pollfd{mounts_, POLLPRI, 0}};
}

/** Whether a watched path now leads to another folder, as after a mount. */
bool FolderWatch::folders_moved() const {
    if (!is_there()) {
        // Gone, unless that is known already.
        return source_ != Source::None;
    }
    for (const auto& [watch, folder] : folders_) {
        struct stat status {};

        if (stat(folder.path.c_str(), &status) != 0 || status.st_dev != folder.device ||
            status.st_ino != folder.inode) {
            return true;
        }
    }
    // Unchanged, but it may be back after it was gone.
    return source_ == Source::None;
}

void FolderWatch::read(const pollfd* polled) {
    const bool doubtful = read_events();
    // POLLERR is how the kernel reports a changed table of mounts.
    const bool moved = (polled[1].revents & (POLLPRI | POLLERR)) != 0 && folders_moved();
    const bool is_time = next_look_ && *next_look_ <= Clock::now();
    if (doubtful || moved || is_time) {
        look();
    }
}

/** Returns whether events were lost or the folder itself was taken away. */
bool FolderWatch::read_events() {
    bool doubtful = false;
#ifdef __linux__
    alignas(inotify_event) std::array<char, kEventBytes> bytes{};
    while (events_ >= 0 && !doubtful) {
        const ssize_t count = ::read(events_, bytes.data(), bytes.size());
        // Nothing more is there, since the descriptor does not block.
        if (count <= 0) {
            break;
        }
        for (ssize_t at = 0; at < count;) {
            inotify_event event{};
            std::memcpy(&event, bytes.data() + at, sizeof event);
            const char* name = bytes.data() + at + sizeof event;
            doubtful =
                take_event(event.mask, event.wd, event.len ? std::string(name) : std::string()) ||
                doubtful;
            at += static_cast<ssize_t>(sizeof event + event.len);
        }
    }
#endif
    return doubtful;
}

/** Returns whether everything is to be looked at again. */
bool FolderWatch::take_event(std::uint32_t mask, int watch, const std::string& name) {
#ifdef __linux__
    const auto folder = folders_.find(watch);
    // Events were lost, or the file system was unmounted.
    if ((mask & (IN_Q_OVERFLOW | IN_UNMOUNT)) != 0) {
        return true;
    }
    if (folder == folders_.end()) {
        return false;  // of a folder that was left a moment ago
    }
    const std::string path = folder->second.path;
    if ((mask & (IN_DELETE_SELF | IN_MOVE_SELF)) != 0) {
        return path == folder_;  // others are reported by the folder that they are in
    }
    if (is_hidden(name)) {
        return false;
    }
    const std::string entry = path + "/" + name;
    if ((mask & IN_ISDIR) != 0) {
        if ((mask & (IN_MOVED_FROM | IN_DELETE)) != 0) {
            leave(entry);
        } else if ((mask & (IN_CREATE | IN_MOVED_TO)) != 0) {
            // What had this name before is forgotten, so that the new folder is listed.
            leave(entry);
            enter(entry);
        }
    } else if ((mask & (IN_MOVED_FROM | IN_DELETE)) != 0) {
        report_(entry, Change::Gone);
    } else if ((mask & (IN_CLOSE_WRITE | IN_MOVED_TO)) != 0) {
        report_(entry, Change::Closed);
    } else if ((mask & IN_CREATE) != 0) {
        std::error_code error;
        // A link to a folder is reported like a file.
        fs::is_directory(entry, error) ? static_cast<void>(enter(entry))
                                       : report_(entry, Change::Appeared);
    }
#else
    static_cast<void>(mask);
    static_cast<void>(watch);
    static_cast<void>(name);
#endif
    return false;
}

}  // namespace quorvane
