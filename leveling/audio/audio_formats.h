#pragma once

#include <set>
#include <string>

namespace quorvane {

/** The file extensions, lower case and without the dot, that the installed libsndfile can write. */
const std::set<std::string>& writable_extensions();

/** The path's extension, lower case and without the dot; empty if it has none. */
std::string lower_extension(const std::string& path);

/** True when both extensions stand for one container ("aif" and "aiff"). */
bool same_container(const std::string& extension, const std::string& other);

/**
 * True when writing samples in this libsndfile format loses more than their rounding: such a file
 * is decoded once and encoded once.
 */
bool is_lossy(int format);

/** True when samples in this libsndfile format are packed without loss, so that they can break. */
bool is_packed_lossless(int format);

}  // namespace quorvane
