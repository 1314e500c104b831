#include "Common/files/part_name.h"

#include <unistd.h>

#include <boost/crc.hpp>
#include <boost/filesystem.hpp>
#include <cstdio>
#include <random>

namespace fs = boost::filesystem;

namespace level_engine {

namespace {

std::string hexadecimal(unsigned number) {
    char text[2 * sizeof number + 1];
    std::snprintf(text, sizeof text, "%08x", number);
    return text;
}

}  // namespace

std::string part_prefix(const std::string& target) {
    constexpr std::size_t kMostBytes = 180;
    std::string name = fs::path(target).filename().string();
    if (name.size() > kMostBytes) {
        boost::crc_32_type sum;
        sum.process_bytes(name.data(), name.size());
        name.resize(kMostBytes);
        name += "~" + hexadecimal(sum.checksum());
    }
    return "." + name + kPartWord;
}

std::string part_path(const std::string& target) {
    std::random_device random;
    const std::string name =
        part_prefix(target) + std::to_string(getpid()) + "-" + hexadecimal(random()) + kPartEnd;
    return (fs::path(target).parent_path() / name).string();
}

}  // namespace level_engine
