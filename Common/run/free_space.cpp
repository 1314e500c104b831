#include "Common/run/free_space.h"

#include <boost/filesystem.hpp>
#include <cstdint>
#include <stdexcept>

namespace fs = boost::filesystem;

namespace {

constexpr std::uintmax_t kFactor = 3;  // intermediate files of the input's size that exist at once

std::string megabytes(std::uintmax_t bytes) {
    constexpr std::uintmax_t kMegabyte = 1000000;
    return std::to_string((bytes + kMegabyte - 1) / kMegabyte) + " MB";
}

}  // namespace

void require_free_space(const std::string& input, const std::string& base) {
    const std::uintmax_t needed = kFactor * fs::file_size(input);
    if (fs::space("/").available < needed) {
        throw std::runtime_error("Insufficient disk space for temporary files.");
    }
    const fs::path directory = fs::path(base).parent_path();
    boost::system::error_code error;
    const fs::space_info there = fs::space(directory, error);
    if (!error && there.available < needed) {
        throw std::runtime_error(input + ": the temporary files need " + megabytes(needed) +
                                 ", the disk of " + directory.string() + " has " +
                                 megabytes(there.available) + " left");
    }
}
