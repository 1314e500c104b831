#pragma once

#include <cstdint>
#include <string>

#include "leveling/storage/scratch.h"
#include "library/run/settings.h"

namespace quorvane {

/** Whether temporary data of a call lies in memory or on a disk. */
enum class Place { kMemory, kDisk };

/**
 * The folder of one call's temporary data: in the system's file system in memory (/dev/shm) up to
 * the caller's bound and where it has room, else in the caller's scratch folder. It goes with this
 * object, and where the process is killed with the next call of any process.
 */
class Workplace {
  public:
    /** bytes: of the audio. Throws CallError. */
    Workplace(const Settings& settings, std::uint64_t bytes);

    Place place() const { return place_; }

    /** Absolute, without "/" at its end. */
    const std::string& folder() const { return folder_; }

    std::string operator/(const std::string& name) const { return folder_ + "/" + name; }

    /** The text with words in place of the paths in the folder, which mean nothing to callers. */
    std::string without_paths(std::string text) const;

  private:
    Place place_;
    ScratchDirectory directory_;
    std::string folder_;
};

/** Names of files in a workplace that messages have words for. */
constexpr const char* kInputName = "audio.wav";
constexpr const char* kResultName = "result.wav";

}  // namespace quorvane
