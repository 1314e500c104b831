#include "leveling/archive/file_list.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>

#include "leveling/archive/bounded_lines.h"
#include "leveling/request/request.h"

namespace quorvane {

// Empty entries are skipped, so that a list may end with or without a separator.
std::vector<std::string> read_file_list(const std::string& path, ListSeparator separator) {
    std::ifstream file;
    const bool standard_input = path == "-";
    if (!standard_input) {
        file.open(path, std::ios::binary);
    }
    std::istream& in = standard_input ? std::cin : file;
    // A folder opens and fails at the first byte.
    if (!in || (in.peek() == std::istream::traits_type::eof() && in.bad())) {
        throw UsageError(
            fmt::format("--files-from {} cannot be read: {}", path, std::strerror(errno)));
    }
    std::vector<std::string> paths;
    const char end = separator == ListSeparator::Null ? '\0' : '\n';
    constexpr std::size_t kMostPathBytes = 1 << 16;  // systems allow 4096
    BoundedLines lines(in, kMostPathBytes, end);
    for (std::string line; lines.next(line);) {
        if (lines.too_long()) {
            throw UsageError(fmt::format(
                "--files-from {}: what begins at byte {} is too long for a path{}", path,
                lines.offset(),
                separator == ListSeparator::Null ? "; --null expects null bytes between PATHs"
                                                 : ""));
        }
        if (!line.empty()) {
            paths.push_back(line);
        }
    }
    return paths;
}

}  // namespace quorvane
