#include <fcntl.h>
#include <fmt/format.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <map>

#include "Common/files/descriptor.h"
#include "leveling/archive/record.h"
#include "leveling/facts/file_error.h"
#include "leveling/inputs/plan.h"
#include "leveling/storage/folders.h"

/*
 * The questions are asked without a trace on the disk, so that a dry run may ask them too. They
 * cannot promise success: a disk may fill up meanwhile. They find what would fail for certain,
 * before hours of work. Each folder is asked once, however many outputs go there.
 */

namespace quorvane {
namespace fs = std::filesystem;

namespace {

/** Why no file can be made in the folder; empty when one can. */
std::string folder_problem(const fs::path& folder) {
    const std::string existing = existing_folder(folder.string());
    const auto because = [&](int error) { return folder_cause(existing, std::strerror(error)); };
    std::error_code error;
    if (!fs::is_directory(existing, error)) {
        return because(error ? error.value() : ENOTDIR);
    }

    struct statvfs volume {};

    // The super-user passes every check of permissions, but not a volume that is read-only.
    if (statvfs(existing.c_str(), &volume) == 0 && (volume.f_flag & ST_RDONLY)) {
        return because(EROFS);
    }
    return access(existing.c_str(), W_OK | X_OK) == 0 ? "" : because(errno);
}

/** What holds for all outputs in a folder. */
struct Place {
    std::string problem;
    long most_name_bytes = 0;
};

/** What would stop outputs in a folder, and the longest name (bytes) that it takes. */
Place look_at(const fs::path& folder) {
    std::string problem = folder_problem(folder);
    if (problem.empty()) {
        problem = record_problem((folder / kRecordName).string());
    }
    return {problem, pathconf(existing_folder(folder.string()).c_str(), _PC_NAME_MAX)};
}

/** "" where the name fits. */
std::string name_problem(const fs::path& output, long most) {
    const std::size_t bytes = output.filename().string().size();
    return most > 0 && bytes > static_cast<std::size_t>(most)
               ? fmt::format("its output's name would have {} bytes, at most {} are allowed there",
                             bytes, most)
               : "";
}

/** "" where the file can be opened. */
std::string input_problem(const fs::path& input) {
    const Descriptor file(input.string(), O_RDONLY);
    return file.is_open() ? "" : fmt::format("cannot be read: {}", std::strerror(errno));
}

}  // namespace

// Each folder once: an archive has thousands of files in few folders.
void probe_places(std::vector<PlannedFile>& plan) {
    std::map<std::string, Place> folders;
    for (PlannedFile& file : plan) {
        if (!file.skip.empty() || file.known || file.settling || !file.problem.empty()) {
            continue;
        }
        file.problem = input_problem(file.input);
        if (!file.problem.empty() || file.output.empty()) {
            continue;
        }
        const fs::path folder = fs::path(file.output).has_parent_path()
                                    ? fs::path(file.output).parent_path()
                                    : fs::path(".");
        const auto [known, is_new] = folders.emplace(folder.string(), Place{});
        if (is_new) {
            known->second = look_at(folder);
        }
        const Place& place = known->second;
        file.problem = place.problem.empty() ? name_problem(file.output, place.most_name_bytes)
                                             : place.problem;
    }
}

}  // namespace quorvane
