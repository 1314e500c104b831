#pragma once

#include <string>

namespace level_engine {

/*
 * An output on its way stands beside its target under a hidden name that tells whose it is: who
 * writes it holds a lock on it, so one without a lock was left by a run that was killed.
 */

constexpr const char* kPartWord = ".quorvane-";
constexpr const char* kPartEnd = ".part";

/**
 * What the names of all parts of a target begin with, up to and with kPartWord. A target's name
 * that would get too long goes in with its first bytes and a check sum.
 */
std::string part_prefix(const std::string& target);

/** A new path for a part of this process, in the target's folder: prefix, process, random, end. */
std::string part_path(const std::string& target);

}  // namespace level_engine

using level_engine::kPartEnd;
using level_engine::kPartWord;
using level_engine::part_path;
using level_engine::part_prefix;
