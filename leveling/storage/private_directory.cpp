#include "leveling/storage/private_directory.h"

#include <boost/filesystem.hpp>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <stdexcept>

#include "leveling/storage/scratch.h"

namespace fs = boost::filesystem;

namespace {

/** TMPDIR's directory, or the system's; a sentence and not the library's text when it is of no use.
 */
fs::path temporary_directory() {
    boost::system::error_code error;
    const fs::path directory = fs::temp_directory_path(error);
    if (!error) {
        return fs::absolute(directory);
    }
    const char* set = std::getenv("TMPDIR");
    throw std::runtime_error(
        set != nullptr
            ? std::string("TMPDIR is set to \"") + set +
                  "\", which cannot hold temporary files: " + error.message()
            : "no directory for temporary files can be written: set TMPDIR to one that can");
}

std::string make_own_directory(const fs::path& directory) {
    std::string path = (directory / "quorvane-XXXXXX").string();
    path.reserve(path.size() + 1);  // once the directory is there, nothing may fail any more
    if (mkdtemp(&path[0]) == nullptr) {
        throw std::runtime_error("no directory for temporary files can be made in " +
                                 directory.string() + ": " + std::strerror(errno));
    }
    path += '/';
    return path;
}

std::string make_kept_directory(const std::string& path) {
    std::filesystem::create_directories(path);  // Boost's refuses "." in some versions
    const std::string kept = fs::absolute(path).string();
    return kept.back() == '/' ? kept : kept + '/';
}

}  // namespace

PrivateDirectory::PrivateDirectory(const std::string& keep)
    : path_(keep.empty() ? make_own_directory(temporary_directory()) : make_kept_directory(keep)),
      remove_(keep.empty()) {}

PrivateDirectory::PrivateDirectory(const Below& below)
    : path_(make_own_directory(fs::absolute(below.folder))), remove_(true) {}

PrivateDirectory::~PrivateDirectory() {
    if (remove_) {
        quorvane::remove_tree(path_);
    }
}
