#pragma once

#include <sys/types.h>

#include <map>
#include <string>
#include <vector>

namespace level_engine {

/**
 * Sound files between two steps that need no name on the disk. The steps open them by their paths
 * like any other (sound_handle.h looks here first), but a path that is held leads to a file of the
 * run's temporary folder that was unlinked as soon as it was made: it is gone when the process
 * ends, however it ends. When a file is let go, its pages are written over by the next one, which
 * spares the system the work of giving up and finding as many anew.
 *
 * Only one handle of a file is open at a time: they share its position. The table belongs to the
 * run on this thread.
 */
class ScratchSounds {
  public:
    /** The one of this thread. */
    static ScratchSounds& of_this_thread();

    ScratchSounds(const ScratchSounds&) = delete;
    ScratchSounds& operator=(const ScratchSounds&) = delete;

    ~ScratchSounds() { clear(); }

    /** The path stands for a file here once it is written; base: what the files' names begin with,
     * for as long as they have one. */
    void reserve(const std::string& path, const std::string& base);

    /**
     * The path stands for what comes behind the position of this open file, whose descriptor stays
     * the caller's; false where that is not possible. Anywhere but at its beginning libsndfile
     * takes WAV and AIFF alone.
     */
    bool reserve_in(const std::string& path, int descriptor);

    /** Whether a held path leads to a file. */
    bool has(const std::string& path) const;

    /** The file is not needed any more; the next one may have its room. */
    void release(const std::string& path);

    /** Gives back the room that no file has at present. */
    void drop_room();

    /** Holds nothing any more. */
    void clear();

    /**
     * A descriptor of a held file where it begins, which the caller closes, or -1: the path is not
     * held, or no file could be made, and it stands for itself from now on.
     */
    int open_for_writing(const std::string& path);
    int open_for_reading(const std::string& path) const;

    /** Cuts off what an earlier file left behind the position of a descriptor. */
    static void trim(int descriptor);

  private:
    struct ReservedFile {
        std::string base;
        int file = -1;
        off_t begin = 0;  // bytes, in front of which another's stand
    };

    ScratchSounds() = default;

    std::map<std::string, ReservedFile> reserved_;
    std::vector<int> room_;  // descriptors of files that nobody has
};

/** copy_file for sound files, which may be held: 0, or 1 after saying why not. */
int copy_sound(const std::string& from, const std::string& to);

}  // namespace level_engine

using level_engine::copy_sound;
using level_engine::ScratchSounds;
