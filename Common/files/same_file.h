#pragma once

#include <string>

namespace level_engine {

/** Whether two paths name one file, links followed. False when one of them does not exist. */
bool is_same_file(const std::string& first, const std::string& second);

/** The message of a step that would overwrite its input. */
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
