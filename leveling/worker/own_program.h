#pragma once

#include <string>

namespace quorvane {

/**
 * What starts this very program once more, also when its file was replaced or removed meanwhile.
 */
std::string own_program();

/**
 * The folder in which this program's file lies, symbolic links followed; empty where the system
 * does not tell.
 */
std::string own_folder();

}  // namespace quorvane
