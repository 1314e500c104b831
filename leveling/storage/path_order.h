#pragma once

#include <algorithm>
#include <string>

namespace quorvane {

/**
 * The order of std::filesystem::path, folder by folder, so that "a/z" comes before "a-b", on plain
 * text. A path object holds each of its names once more, some 500 bytes for one path; of a hundred
 * thousand files that would be most of the memory.
 */
inline bool path_less(const std::string& one, const std::string& other) {
    const auto rank = [](char c) { return c == '/' ? 0 : 1 + static_cast<unsigned char>(c); };
    return std::lexicographical_compare(one.begin(), one.end(), other.begin(), other.end(),
                                        [&](char a, char b) { return rank(a) < rank(b); });
}

}  // namespace quorvane
