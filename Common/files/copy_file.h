#pragma once

#include <string>

/**
 * Copies a file, replacing what stands at to, which changes whole or not at all: a file, a link or
 * an empty folder. A file copied onto itself, by whatever link, stays as it is. Returns 0, or 1
 * after writing the reason to the standard error stream.
 */
int copy_file(std::string from, std::string to);
