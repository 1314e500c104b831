#pragma once

#include <string>

namespace quorvane {

/** The option table as the manual page's list and as the completions of three shells. */
std::string man_options();

/** The delivery targets as the manual page's list. */
std::string man_destinations();

/** Scripts for the shells' own completion systems: options, their values, audio files. */
std::string bash_completion();
std::string zsh_completion();
std::string fish_completion();

}  // namespace quorvane
