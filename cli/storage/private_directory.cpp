#include "cli/storage/private_directory.h"

#include <boost/filesystem.hpp>
#include <cerrno>
#include <cstdlib>
#include <vector>

namespace fs = boost::filesystem;

namespace {

std::string make_own_directory() {
    const std::string pattern =
        (fs::absolute(fs::temp_directory_path()) / "quorvane-XXXXXX").string();
    std::vector<char> name(pattern.begin(), pattern.end());
    name.push_back('\0');
    if (mkdtemp(name.data()) == nullptr) {
        throw fs::filesystem_error(
            "cannot make a directory for temporary files", pattern,
            boost::system::error_code(errno, boost::system::system_category()));
    }
    return name.data();
}

std::string make_kept_directory(const std::string& path) {
    fs::create_directories(path);
    return fs::absolute(path).string();
}

}  // namespace

PrivateDirectory::PrivateDirectory(const std::string& keep)
    : path_(keep.empty() ? make_own_directory() : make_kept_directory(keep)),
      remove_(keep.empty()) {
    if (path_.back() != '/') {
        path_ += '/';
    }
}

PrivateDirectory::~PrivateDirectory() {
    if (remove_) {
        boost::system::error_code ignored;
        fs::remove_all(path_, ignored);
    }
}
