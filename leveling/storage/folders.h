#pragma once

#include <string>

namespace quorvane {

/** The folder itself, or the nearest one above it that exists. Absolute. */
std::string existing_folder(const std::string& folder);

/**
 * The topmost folder that is missing of those that lead to the output, or "": what a run will make.
 */
std::string missing_folder(const std::string& output);

}  // namespace quorvane
