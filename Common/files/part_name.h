#pragma once

#include <string>

namespace level_engine {

/*
 * An unfinished output is a hidden file beside its target, whose name contains the target's and the
 * process. Its writer locks it, so a file without a lock was left by a run that was killed.
 */

constexpr const char* kPartWord = ".quorvane-";
constexpr const char* kPartEnd = ".part";

/**
 * The prefix of the names of all parts of a target, up to and including kPartWord. A target's name
 * that is too long is replaced by its first bytes and a checksum.
 */
std::string part_prefix(const std::string& target);

/** A new path for a part of this process, in the target's folder: prefix, process, random, end. */
std::string part_path(const std::string& target);

}  // namespace level_engine

using level_engine::kPartEnd;
using level_engine::kPartWord;
using level_engine::part_path;
using level_engine::part_prefix;
