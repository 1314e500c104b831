#pragma once

#include <cstdint>
#include <string>

namespace quorvane {

/**
 * The content of a file as 32 hexadecimal digits: XXH3, 128 bits, of all its bytes (xxHash 0.8, the
 * algorithm and its canonical form are stable). It tells changed files from unchanged ones; it is
 * not cryptographic: a file can be forged to match. Throws std::system_error.
 */
std::string content_hash(const std::string& path);

/** The same of a text. */
std::string text_hash(const std::string& text);

/** 64 bits of the same family, for places in a table. */
std::uint64_t name_hash(const std::string& name);

}  // namespace quorvane
