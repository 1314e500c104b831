#include "library/run/workplace.h"

#include <sys/statvfs.h>
#ifdef __linux__
#include <linux/magic.h>
#include <sys/vfs.h>
#endif

#include <fmt/format.h>

#include <boost/algorithm/string/replace.hpp>
#include <filesystem>
#include <mutex>

namespace quorvane {
namespace {

constexpr const char* kMemoryFolder = "/dev/shm";
// Room of a call in sizes of its audio: its input and output, two intermediate recordings and the
// float copies of 16-bit audio.
constexpr std::uint64_t kSizes = 8;

/** Whether the folder is a file system in memory with so much room. */
bool has_memory(std::uint64_t bytes) {
#ifdef __linux__
    struct statfs status {};

    return statfs(kMemoryFolder, &status) == 0 && status.f_type == TMPFS_MAGIC &&
           static_cast<std::uint64_t>(status.f_bavail) *
                   static_cast<std::uint64_t>(status.f_bsize) >=
               bytes;
#else
    return bytes == 0;
#endif
}

Place place_for(const Settings& settings, std::uint64_t bytes) {
    const bool fits = bytes <= settings.memory_bytes && has_memory(kSizes * bytes);
    return fits ? Place::kMemory : Place::kDisk;
}

/** What killed processes have left in memory does not wait for a restart of the system. */
std::string folder_in_memory() {
    static std::once_flag once;
    std::call_once(once, [] { remove_stale_scratch_directories(kMemoryFolder); });
    return kMemoryFolder;
}

std::string folder_for(Place place, const Settings& settings) {
    if (place == Place::kMemory) {
        return folder_in_memory();
    }
    std::error_code error;
    if (!settings.scratch_folder.empty() &&
        !std::filesystem::is_directory(settings.scratch_folder, error)) {
        throw CallError(QUORVANE_IO_ERROR,
                        fmt::format("the scratch folder {} is not a folder that exists",
                                    settings.scratch_folder));
    }
    return settings.scratch_folder;
}

}  // namespace

Workplace::Workplace(const Settings& settings, std::uint64_t bytes)
    : place_(place_for(settings, bytes)),
      directory_(folder_for(place_, settings)),
      folder_(directory_.path().substr(0, directory_.path().size() - 1)) {}

std::string Workplace::without_paths(std::string text) const {
    boost::algorithm::replace_all(text, *this / kInputName, "the audio");
    boost::algorithm::replace_all(text, *this / kResultName, "the result");
    boost::algorithm::replace_all(text, folder_, "temporary data");
    return text;
}

}  // namespace quorvane
