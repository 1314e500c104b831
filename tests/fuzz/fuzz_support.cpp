#include "tests/fuzz/fuzz_support.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>

namespace fuzz {

namespace {

/** Made in memory where the system has such a place: a fuzzer writes thousands of files a second.
 */
std::string make_folder() {
    std::string name =
        std::filesystem::exists("/dev/shm") ? "/dev/shm/fuzz-XXXXXX" : "/tmp/fuzz-XXXXXX";
    if (mkdtemp(&name[0]) == nullptr) {
        std::perror(name.c_str());
        std::abort();
    }
    return name + "/";
}

/** Removes the folder when the process ends, but not in a copy that a crash handler forked. */
struct Folder {
    Folder() : path(make_folder()), owner(getpid()) {}

    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;

    ~Folder() {
        if (getpid() == owner) {
            std::error_code ignored;
            std::filesystem::remove_all(path, ignored);
        }
    }

    std::string path;
    pid_t owner;
};

}  // namespace

const std::string& folder() {
    static const Folder made;
    return made.path;
}

std::string file(const std::string& name, const std::uint8_t* data, std::size_t size) {
    const std::string path = folder() + name;
    std::FILE* out = std::fopen(path.c_str(), "wb");
    if (out == nullptr || std::fwrite(data, 1, size, out) != size || std::fclose(out) != 0) {
        std::perror(path.c_str());
        std::abort();
    }
    return path;
}

std::vector<std::string> words(const std::uint8_t* data, std::size_t size, std::size_t most_words) {
    std::vector<std::string> cut(1);
    for (std::size_t i = 0; i < size; ++i) {
        if (data[i] != 0) {
            cut.back() += static_cast<char>(data[i]);
        } else if (cut.size() < most_words) {
            cut.emplace_back();
        } else {
            break;
        }
    }
    return cut;
}

}  // namespace fuzz
