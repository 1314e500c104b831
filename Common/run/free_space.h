#pragma once

#include <string>

/**
 * Throws std::runtime_error unless there is room for the intermediate files of an input: three
 * times its size, both on the volume of "/" and on the one of the temporary directory (base: a path
 * in it). Of a directory that cannot be asked the first step will tell.
 */
void require_free_space(const std::string& input, const std::string& base);
