#include "cli/storage/private_directory.h"

#include <boost/filesystem.hpp>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <vector>

namespace fs = boost::filesystem;

namespace {

std::string make_own_directory() {
    boost::system::error_code error;
    const fs::path temporary = fs::temp_directory_path(error);
    if (error) {
        const char* named = std::getenv("TMPDIR");
        throw std::runtime_error(
            std::string("there is no folder for temporary files: ") +
            (named != nullptr ? "TMPDIR names " + std::string(named) : "TMPDIR is not set") + ": " +
            error.message());
    }
    const std::string pattern = (fs::absolute(temporary) / "quorvane-XXXXXX").string();
    std::vector<char> name(pattern.begin(), pattern.end());
    name.push_back('\0');
    if (mkdtemp(name.data()) == nullptr) {
        const std::string cause = std::strerror(errno);
        throw std::runtime_error("the folder for temporary files, " + temporary.string() +
                                 ", cannot be written (TMPDIR names another): " + cause);
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
