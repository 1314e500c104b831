#include "leveling/storage/folders.h"

#include <filesystem>
#include <system_error>

namespace quorvane {
namespace fs = std::filesystem;

std::string missing_folder(const std::string& output) {
    std::error_code error;
    fs::path missing;
    fs::path at = fs::absolute(output).parent_path();
    while (!fs::exists(at, error) && at != at.parent_path()) {
        missing = at;
        at = at.parent_path();
    }
    return missing.string();
}

std::string existing_folder(const std::string& folder) {
    const fs::path missing = missing_folder(folder + "/.");
    return missing.empty() ? fs::absolute(folder).string() : missing.parent_path().string();
}

}  // namespace quorvane
