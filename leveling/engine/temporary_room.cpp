#include "leveling/engine/temporary_room.h"

#include <fmt/format.h>

#include <cmath>
#include <filesystem>
#include <system_error>

#include "leveling/facts/no_room.h"

namespace quorvane {
namespace fs = std::filesystem;

void require_temporary_room(const std::string& input, const std::string& directory) {
    constexpr double kMegabyte = 1e6;
    std::error_code no_size;
    std::error_code no_space;
    const double needed = kTemporarySizes * static_cast<double>(fs::file_size(input, no_size));
    const auto left = static_cast<double>(fs::space(directory, no_space).available);
    if (!no_size && !no_space && left < needed) {
        throw NoRoomError(fmt::format(
            "the temporary files need {} MB, the disk of {} has {} MB left (TMPDIR names another "
            "folder)",
            std::ceil(needed / kMegabyte), directory, std::floor(left / kMegabyte)));
    }
}

}  // namespace quorvane
