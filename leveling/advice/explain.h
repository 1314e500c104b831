#pragma once

#include <string>

namespace quorvane {

/**
 * What a code means, why it matters, what to do with the recording and before the next one. Without
 * a code: the list of all codes. Throws std::invalid_argument for one that does not exist.
 */
std::string explanation(const std::string& code);

}  // namespace quorvane
