#pragma once

#include <functional>
#include <string>
#include <vector>

/*
 * Defaults of the options from quorvane.conf: a file of the system, one of the user, and one of the
 * folder that is worked on. The last may have come with the recordings from anywhere, so it sets
 * only how a recording is leveled and called, never what is read, replaced or written elsewhere.
 * Only the command for people reads these files.
 */

namespace quorvane {

/** From the weakest to the strongest. */
enum class ConfigSource { System, User, Folder, CommandLine };

/** The value of one option and where it was set. */
struct ConfigValue {
    ConfigSource source;
    std::string name;    // of the option, without its hyphens
    std::string value;   // of an option without an argument: "yes" or "no"
    std::string origin;  // "FILE, line N" or "command line"
};

/** Where the files are looked for; an empty path stands for no file. */
struct ConfigPlaces {
    // Absolute paths.
    std::string system;
    std::string user;
};

/** /etc/quorvane/quorvane.conf, and quorvane/quorvane.conf below XDG_CONFIG_HOME or ~/.config. */
ConfigPlaces standard_config_places();

/** What the files hold. */
struct Configuration {
    std::vector<ConfigValue> values;   // in order of the sources
    std::vector<std::string> looked;   // each file, and whether it was read
    std::vector<std::string> ignored;  // why a file that is there was not read
};

/**
 * Reads the files of the system, of the user and of the folder (each may be absent). Each value is
 * passed to `check`, which throws UsageError for a wrong one. A file is not read unless it is a
 * regular file that belongs to this user or to root; a link is not followed in the folder. Throws
 * UsageError that names file and line.
 */
Configuration read_configuration(const ConfigPlaces& places,
                                 const std::string& folder,
                                 const std::function<void(const ConfigValue&)>& check);

/**
 * The folder whose file counts for these PATHs: the one that all of them are, or are in; "" if none
 * has such a file. Throws UsageError where they lie in several folders and one of these has a file,
 * which would be meant for a part of them only.
 */
std::string config_folder(const std::vector<std::string>& paths);

/**
 * The values that take effect: of two that set the same or exclude each other, that of the stronger
 * source. Those of one source stay side by side.
 */
std::vector<ConfigValue> effective_values(const std::vector<ConfigValue>& values);

}  // namespace quorvane
