#pragma once

#include <string>

namespace level_engine {

/*
 * Files that appear under their name whole or not at all. Both throw boost::filesystem
 * filesystem_error (a std::runtime_error) naming the files and the cause, and then leave the source
 * and what stood at the target as they were.
 */

/** Copies from to a temporary name beside to, syncs it and renames it to to. */
void copy_whole(const std::string& from, const std::string& to);

/** Renames from to to; across file systems copies as copy_whole does, then removes from. */
void move_whole(const std::string& from, const std::string& to);

}  // namespace level_engine

using level_engine::copy_whole;
using level_engine::move_whole;
