#pragma once

#include <string>

namespace level_engine {

/** Whether two paths lead to one file, by whatever links. False where one of them is no file. */
bool is_same_file(const std::string& first, const std::string& second);

/** What a step says that would write its output over its input. */
std::string overwritten_input_text(const std::string& output);

/**
 * To be called before the output is opened, which empties it: throws std::runtime_error when it is
 * the input.
 */
void require_other_file(const std::string& input, const std::string& output);

}  // namespace level_engine

using level_engine::is_same_file;
using level_engine::overwritten_input_text;
using level_engine::require_other_file;
