#pragma once

#include <string>

namespace cli {

/**
 * The greatest momentary loudness of a file in LUFS: windows of 400 ms, one each 100 ms (EBU Tech
 * 3341). Minus infinity for silence. Throws std::runtime_error when the file cannot be read.
 */
double greatest_momentary_lufs(const std::string& path);

}  // namespace cli
