#include "Common/files/same_file.h"

#include <sys/stat.h>

#include <stdexcept>

namespace level_engine {

bool is_same_file(const std::string& first, const std::string& second) {
    // Device and inode: whatever the paths look like, and through links of both kinds.
    struct stat one = {};
    struct stat other = {};
    return ::stat(first.c_str(), &one) == 0 && ::stat(second.c_str(), &other) == 0 &&
           one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

std::string overwritten_input_text(const std::string& output) {
    return output + ": is the input and would be overwritten";
}

void require_other_file(const std::string& input, const std::string& output) {
    if (is_same_file(input, output)) {
        throw std::runtime_error(overwritten_input_text(output));
    }
}

}  // namespace level_engine
