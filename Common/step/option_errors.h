#pragma once

#include <exception>
#include <fstream>
#include <string>

namespace level_engine {

/**
 * The text of what a command line's parser threw. The option library makes it by putting values
 * into a template for as long as it finds a placeholder, which never ends when a value (a word of
 * the command line, a line of an options file) holds its own, such as "%value%": its percent signs
 * are kept out of that and put back afterwards.
 */
std::string text_of_option_error(std::exception& failure);

/** Opens an options file; false when it is missing, a folder, or cannot be read. */
bool open_options_file(const std::string& path, std::ifstream& file);

}  // namespace level_engine

using level_engine::open_options_file;
using level_engine::text_of_option_error;
