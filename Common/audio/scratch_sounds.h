#pragma once

#include <sys/types.h>

#include <map>
#include <string>
#include <vector>

namespace level_engine {

/**
 * Sound files between two steps that need no name on the disk. The steps open them by path like
 * any other file (sound_handle.h looks here first), but a reserved path maps to a file in the run's
 * temporary folder that was unlinked right after it was created: the system removes it when the
 * process ends, also after a crash. A released file is overwritten by the next one, so the system
 * does not have to free its pages and allocate new ones.
 *
 * A file may have only one open handle at a time, since handles share its position. The table
 * belongs to the run on this thread.
 */
class ScratchSounds {
  public:
    /** The one of this thread. */
    static ScratchSounds& of_this_thread();

    ScratchSounds(const ScratchSounds&) = delete;
    ScratchSounds& operator=(const ScratchSounds&) = delete;

    ~ScratchSounds() { clear(); }

    /** Maps the path to an unlinked file, which is created when it is first written. base: prefix
     * of the file's name until it is unlinked. */
    void reserve(const std::string& path, const std::string& base);

    /**
     * Maps the path to this open file, starting at its current position. The caller keeps its
     * descriptor. Returns false when the descriptor cannot be duplicated or has no position. Behind
     * a file's beginning libsndfile supports only WAV and AIFF.
     */
    bool reserve_in(const std::string& path, int descriptor);

    /** Whether the path is reserved and its file exists. */
    bool has(const std::string& path) const;

    /** Ends the use of a path; a later file may reuse its pages. */
    void release(const std::string& path);

    /** Returns the pages of released files to the system. */
    void drop_room();

    /** Releases all paths and their pages. */
    void clear();

    /**
     * Returns a descriptor at the file's beginning, which the caller closes, or -1 when the path is
     * not reserved or no file could be created; the path then names an ordinary file.
     */
    int open_for_writing(const std::string& path);
    int open_for_reading(const std::string& path) const;

    /** Truncates a file at the descriptor's position: a longer file used its pages before. */
    static void trim(int descriptor);

  private:
    struct ReservedFile {
        std::string base;
        int file = -1;
        off_t begin = 0;  // offset in bytes; what is before it belongs to the caller
    };

    ScratchSounds() = default;

    std::map<std::string, ReservedFile> reserved_;
    std::vector<int> room_;  // descriptors of released files, to be reused
};

/** copy_file for sound files and reserved paths: 0, or 1 after reporting the reason. */
int copy_sound(const std::string& from, const std::string& to);

}  // namespace level_engine

using level_engine::copy_sound;
using level_engine::ScratchSounds;
