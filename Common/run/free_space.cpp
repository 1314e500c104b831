#include "Common/run/free_space.h"

#include <boost/filesystem.hpp>
#include <cstdint>
#include <stdexcept>

namespace fs = boost::filesystem;

namespace level_engine {

namespace {

constexpr std::uintmax_t kFactor = 3;  // intermediate files of the input's size that exist at once

}  // namespace

void require_free_space(const std::string& input) {
    if (fs::space("/").available < kFactor * fs::file_size(input)) {
        throw std::runtime_error("Insufficient disk space for temporary files.");
    }
}

}  // namespace level_engine
