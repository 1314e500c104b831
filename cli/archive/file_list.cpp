#include "cli/archive/file_list.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>

#include "cli/options/settings.h"

namespace cli {

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
    for (std::string line; std::getline(in, line, end);) {
        if (!line.empty()) {
            paths.push_back(line);
        }
    }
    return paths;
}

}  // namespace cli
