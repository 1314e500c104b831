#pragma once

#include <optional>
#include <string>

namespace quorvane {

/**
 * LUFS of the speech in a file's centre channel, by itself: the mean K-weighted power of the bins
 * with speech, under the relative gate of ITU-R BS.1770. Nothing where the file names no centre or
 * no one speaks there. Throws std::runtime_error with the cause.
 */
std::optional<double> dialogue_loudness(const std::string& path);

}  // namespace quorvane
