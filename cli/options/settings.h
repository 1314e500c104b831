#pragma once

#include <optional>
#include <string>
#include <vector>

#include "cli/options/config_files.h"
#include "leveling/request/request.h"

/*
 * Settings are the options of a run, read once and checked for contradictions; no other code reads
 * the command line. The tuning options are not read here: they go to the engine as they were given,
 * which knows their types and says what is wrong with them.
 */

namespace quorvane {

/** Colors and progress bars. Auto: on a terminal that can show them. */
enum class When { Auto, Always, Never };

/** The content of a command line: the work, and how it is shown. */
struct Settings : Request {
    std::string watch;     // a folder whose files are leveled as they arrive; empty: none
    std::string on_done;   // a program for each file of a watch; empty: none
    std::string metrics;   // a file with counts of a watch; empty: none
    bool quiet = false;    // errors only
    bool verbose = false;  // the engine's messages as well
    When color = When::Auto;
    When progress = When::Auto;
    bool help = false;
    bool version = false;
    std::optional<std::string> explain;  // a finding's code; empty: all of them
    bool show_config = false;
    std::vector<ConfigValue> values;          // of the options, and where each was set
    std::vector<std::string> config_files;    // each file of defaults, and whether it was read
    std::vector<std::string> ignored_config;  // why a file that is there was not read
};

/** Reads a command line (argv[0] is the program's name). Throws UsageError. */
Settings parse_command_line(int argc, const char* const* argv);

/** The same with the defaults that the files at these places set. */
Settings parse_command_line(int argc, const char* const* argv, const ConfigPlaces& places);

/** The text of --show-config. */
std::string config_text(const Settings& settings);

}  // namespace quorvane
