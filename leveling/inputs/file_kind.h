#pragma once

#include <filesystem>
#include <set>
#include <string>

namespace quorvane {

enum class FileKind {
    Wanted,       // sound that can be leveled, as far as the name and the first bytes tell
    Unsupported,  // sound or video of a format that cannot
    Other,        // no sound
};

/**
 * What a file in a searched folder is: by its extension where that is known, else by its first
 * bytes. Whether a wanted file really holds sound is found when it is opened.
 */
FileKind file_kind(const std::filesystem::path& path);

/** The extensions, lower case and without the dot, of the files that are wanted by their name. */
const std::set<std::string>& wanted_extensions();

}  // namespace quorvane
