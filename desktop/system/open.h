#pragma once

#include <string>
#include <vector>

namespace desktop {

/** Opens the file in the program that the system has for it. False when there is none. */
bool open_file(const std::string& path);

/**
 * Shows the files in the file manager, selected where it can do that; else opens the first one's
 * folder.
 */
void show_in_folder(const std::vector<std::string>& paths);

}  // namespace desktop
