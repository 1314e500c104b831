#pragma once

#include <string>

namespace level_engine {

/**
 * Throws std::runtime_error unless the volume of "/" has room for the intermediate files of an
 * input: three times its size. Callers that know more of the temporary directory look there, too.
 */
void require_free_space(const std::string& input);

}  // namespace level_engine

using level_engine::require_free_space;
