#pragma once

#include <boost/program_options.hpp>
#include <string>

#include "cli/options/option_table.h"

namespace quorvane {

/** A group of the option table for the parser and the help. */
boost::program_options::options_description describe(OptionGroup group);

/** The text of --help: examples, ways to call the program, options, exit status. */
std::string help_text();

/** The same for "quorvane merge --help", with the options that a merge uses. */
std::string merge_help_text();

}  // namespace quorvane
