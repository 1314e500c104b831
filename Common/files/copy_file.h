#pragma once

#include <string>

/**
 * Copies a file and atomically replaces what is at to: a file, a link or an empty folder. Does
 * nothing if both paths name the same file, also through links. Returns 0, or 1 after writing the
 * reason to the standard error stream.
 */
int copy_file(std::string from, std::string to);
