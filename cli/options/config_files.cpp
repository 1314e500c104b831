#include "cli/options/config_files.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <boost/algorithm/string/trim.hpp>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <set>
#include <sstream>
#include <utility>

#include "Common/files/descriptor.h"
#include "cli/options/option_table.h"
#include "leveling/facts/nearest_word.h"
#include "leveling/request/request.h"

namespace quorvane {
namespace fs = std::filesystem;

namespace {

/*
 * A file of defaults is read only if it is a regular file of this user or of root: a folder of
 * recordings may come from anywhere. What is wrong in it stops the run with its line, since a
 * default that is silently dropped would level a whole archive in another way.
 */
// Looked for in the system's folder, in the user's and beside the recordings.
constexpr const char* kFileName = "quorvane.conf";
// Far more than all options take; what is larger is a recording or a device by mistake.
constexpr std::size_t kMostBytes = 1 << 16;

/** Ask for something once, or name what a single run works on: no default makes sense. */
constexpr std::array<const char*, 10> kNoDefaults = {
    "help",   "version",    "explain", "no-config", "show-config",
    "output", "files-from", "plan",    "shard",     "watch"};

/** Null for a name that is not in the table. */
const OptionRow* find_option(const std::string& name) {
    const std::vector<OptionRow>& table = option_table();
    const auto found = std::find_if(table.begin(), table.end(),
                                    [&](const OptionRow& row) { return row.name == name; });
    return found == table.end() ? nullptr : &*found;
}

/** Whether it is one of the options that are handed to the engine as they are. */
bool is_tuning(const std::string& name) {
    const OptionRow* row = find_option(name);
    return row != nullptr && row->group == OptionGroup::Tuning;
}

/** An options file is a file of its own to be read, which a folder may not choose. */
bool folder_may_set(const std::string& name) {
    return name == "for" || name == "suffix" || name == "plain" ||
           (is_tuning(name) && name != "options-file");
}

/** The origin that messages and --show-config give. */
std::string at_line(const std::string& path, std::size_t line) {
    return fmt::format("{}, line {}", path, line);
}

/** For the suggestion in a message about a misspelled name. */
std::vector<std::string> option_names() {
    std::vector<std::string> names;
    for (const OptionRow& row : option_table()) {
        names.push_back(row.name);
    }
    return names;
}

/** Throws UsageError for a name that the file may not set. */
const OptionRow& option_of(const ConfigValue& value) {
    const OptionRow* row = find_option(value.name);
    // Unknown names first, then what no file may set, then what only a folder's file may not.
    if (row == nullptr) {
        throw UsageError(fmt::format("{}: no option is called '{}'{}", value.origin, value.name,
                                     did_you_mean(value.name, option_names())));
    }
    if (std::find(kNoDefaults.begin(), kNoDefaults.end(), value.name) != kNoDefaults.end()) {
        throw UsageError(fmt::format("{}: '{}' has no default; give it on the command line",
                                     value.origin, value.name));
    }
    if (value.source == ConfigSource::Folder && !folder_may_set(value.name)) {
        throw UsageError(fmt::format(
            "{}: the file of a folder may set for, suffix, bit-depth, plain and the tuning options "
            "that take no file, not '{}'; remove the line, or give --no-config",
            value.origin, value.name));
    }
    return *row;
}

/** "name = value"; of an option without an argument also "name" alone. */
ConfigValue value_in(ConfigSource source, const std::string& line, const std::string& origin) {
    const std::size_t equals = line.find('=');
    // Without "=" the whole line is the name.
    ConfigValue value{source, boost::algorithm::trim_copy(line.substr(0, equals)), "", origin};
    const OptionRow& row = option_of(value);
    const bool has_value = equals != std::string::npos;
    if (has_value) {
        value.value = boost::algorithm::trim_copy(line.substr(equals + 1));
    }
    if (!row.argument.empty() && !has_value) {
        throw UsageError(fmt::format("{}: '{}' needs a value, as in {} = {}", origin, value.name,
                                     value.name, row.argument));
    }
    // The name of a switch alone means yes.
    if (row.argument.empty()) {
        value.value = has_value ? value.value : "yes";
        if (value.value != "yes" && value.value != "no") {
            throw UsageError(
                fmt::format("{}: '{}' takes yes or no, not '{}'", origin, value.name, value.value));
        }
    }
    return value;
}

/** Adds the values of one file. Throws UsageError, with file and line, for the first wrong one. */
void add_values(ConfigSource source,
                const std::string& path,
                const std::string& text,
                const std::function<void(const ConfigValue&)>& check,
                Configuration& configuration) {
    // Editors of some systems begin a file with a byte order mark.
    constexpr const char* kMark = "\xEF\xBB\xBF";
    std::istringstream in(text.rfind(kMark, 0) == 0 ? text.substr(std::strlen(kMark)) : text);
    // Lines count from 1, as in editors; empty lines and comments count too.
    std::size_t number = 0;
    std::set<std::string> names;
    for (std::string line; std::getline(in, line);) {
        ++number;
        boost::algorithm::trim(line);
        if (line.empty() || line[0] == '#') {
            continue;
        }
        const std::string origin = at_line(path, number);
        const ConfigValue value = value_in(source, line, origin);
        // Which of two values was meant cannot be known, so neither is taken.
        if (!names.insert(value.name).second) {
            throw UsageError(fmt::format("{}: '{}' is set a second time", origin, value.name));
        }
        try {
            check(value);
        } catch (const UsageError& error) {
            throw UsageError(fmt::format("{}: {}", origin, error.what()));
        }
        configuration.values.push_back(value);
    }
}

/** Why an open file is not read, "" if nothing is against it. */
std::string reason_against(int file) {
    struct stat status {};

    // The open descriptor is checked and not the path, which could name another file by now.
    if (fstat(file, &status) != 0) {
        return std::strerror(errno);
    }
    if (!S_ISREG(status.st_mode)) {
        return "it is not a regular file";
    }
    if (status.st_uid != geteuid() && status.st_uid != 0) {
        return "it belongs to another user";
    }
    if ((status.st_mode & S_IWOTH) != 0) {
        return "every user may write to it";
    }
    return "";
}

/** All of the file. Throws UsageError if that fails or the file is too large to be meant. */
std::string content_of(int file, const std::string& path) {
    // One byte more than is allowed, so that a larger file is noticed without reading all of it.
    std::string text(kMostBytes + 1, '\0');
    std::size_t size = 0;
    for (;;) {
        const ssize_t got = read(file, &text[size], text.size() - size);
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got < 0) {
            throw UsageError(fmt::format("{} cannot be read: {}", path, std::strerror(errno)));
        }
        size += static_cast<std::size_t>(got);
        if (got == 0 || size == text.size()) {
            break;
        }
    }
    // A null byte means binary data: a recording by mistake.
    if (size > kMostBytes || text.find('\0') < size) {
        throw UsageError(
            fmt::format("{} is not a list of options; correct it or give --no-config", path));
    }
    text.resize(size);
    return text;
}

/**
 * Adds what a file sets, or why it was not read. A file that is absent is not an error. Throws
 * UsageError for one that can be read and is wrong.
 */
void add_file(ConfigSource source,
              const std::string& path,
              const std::function<void(const ConfigValue&)>& check,
              Configuration& configuration) {
    // In a folder of recordings a link is refused: it could point to any file of this user.
    // Without waiting: a pipe of that name would wait for its writer.
    const int link_rule = source == ConfigSource::Folder ? O_NOFOLLOW : 0;
    const Descriptor file(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK | link_rule);
    std::string reason;
    if (!file.is_open()) {
        if (errno == ENOENT || errno == ENOTDIR) {
            configuration.looked.push_back(path + ": absent");
            return;
        }
        // O_NOFOLLOW reports a link as ELOOP.
        reason = errno == ELOOP ? "it is a link" : std::strerror(errno);
    } else {
        reason = reason_against(file.get());
    }
    if (!reason.empty()) {
        // --show-config lists what was looked for; an ignored file is a note in every run.
        configuration.looked.push_back(fmt::format("{}: not read, {}", path, reason));
        configuration.ignored.push_back(fmt::format("{} is not read: {}", path, reason));
        return;
    }
    add_values(source, path, content_of(file.get(), path), check, configuration);
    configuration.looked.push_back(path + ": read");
}

/** Whether a value of a stronger source makes the other one void. */
bool overrides(const std::string& stronger, const std::string& weaker) {
    // Options that contradict each other: across two sources the stronger one wins silently, since
    // only a contradiction within the user's own words is a mistake.
    constexpr std::pair<const char*, const char*> kExclude[] = {
        {"for", "target"},    {"output", "output-dir"}, {"output", "keep-top"},
        {"quiet", "verbose"}, {"strict", "salvage"},    {"force", "redo-changed"},
        {"force", "verify"},  {"analyze", "no-measure"}};
    const auto are_pair = [&](const auto& pair) {
        return (stronger == pair.first && weaker == pair.second) ||
               (stronger == pair.second && weaker == pair.first);
    };
    return stronger == weaker || std::any_of(std::begin(kExclude), std::end(kExclude), are_pair) ||
           // The engine prefers words to its options file, from whichever file they come.
           (stronger == "options-file" && is_tuning(weaker));
}

}  // namespace

// As the XDG base directory standard has it: a relative XDG_CONFIG_HOME is ignored.
ConfigPlaces standard_config_places() {
    ConfigPlaces places;
    places.system = std::string("/etc/quorvane/") + kFileName;
    const char* folder = std::getenv("XDG_CONFIG_HOME");
    const char* home = std::getenv("HOME");
    if (folder != nullptr && folder[0] == '/') {
        places.user = fmt::format("{}/quorvane/{}", folder, kFileName);
    } else if (home != nullptr && home[0] == '/') {
        places.user = fmt::format("{}/.config/quorvane/{}", home, kFileName);
    }
    // Without either variable places.user stays empty, and no such file is looked for.
    return places;
}

Configuration read_configuration(const ConfigPlaces& places,
                                 const std::string& folder,
                                 const std::function<void(const ConfigValue&)>& check) {
    // From the weakest source to the strongest.
    Configuration configuration;
    if (!places.system.empty()) {
        add_file(ConfigSource::System, places.system, check, configuration);
    }
    if (!places.user.empty()) {
        add_file(ConfigSource::User, places.user, check, configuration);
    }
    if (!folder.empty()) {
        add_file(ConfigSource::Folder, (fs::path(folder) / kFileName).string(), check,
                 configuration);
    }
    return configuration;
}

// Links are resolved, so that one folder that is named in two ways counts once.
std::string config_folder(const std::vector<std::string>& paths) {
    std::set<std::string> folders;
    std::string with_file;
    for (const std::string& path : paths) {
        // The standard input has no folder.
        if (path == "-") {
            continue;
        }
        std::error_code error;
        fs::path folder = path;
        // The folder of a file; of a bare name the current one.
        if (!fs::is_directory(folder, error)) {
            folder = folder.has_parent_path() ? folder.parent_path() : fs::path(".");
        }
        const fs::path real = fs::canonical(folder, error);
        if (folders.insert(error ? folder.string() : real.string()).second &&
            // A link counts as well, also a broken one: it is then reported as ignored.
            fs::exists(fs::symlink_status(folder / kFileName, error))) {
            with_file = folder.string();
        }
    }
    if (!with_file.empty() && folders.size() > 1) {
        throw UsageError(fmt::format(
            "{} would set options for a part of these PATHs only; level the folders one "
            "by one, or give --no-config",
            (fs::path(with_file) / kFileName).string()));
    }
    return with_file;
}

std::vector<ConfigValue> effective_values(const std::vector<ConfigValue>& values) {
    const bool watches = std::any_of(values.begin(), values.end(), [](const ConfigValue& value) {
        return value.name == "watch";
    });
    // A file may set these two for every watch; without a watch they are dropped.
    const auto is_idle = [&](const ConfigValue& value) {
        return !watches && value.source != ConfigSource::CommandLine &&
               (value.name == "on-done" || value.name == "metrics");
    };
    std::vector<ConfigValue> effective;
    std::copy_if(
        values.begin(), values.end(), std::back_inserter(effective), [&](const ConfigValue& value) {
            // A value stays unless a stronger source sets the same option or one that excludes it.
            return !is_idle(value) &&
                   std::none_of(values.begin(), values.end(), [&](const ConfigValue& other) {
                       return other.source > value.source && overrides(other.name, value.name) &&
                              // "quiet = no" leaves verbose as it is.
                              (other.name == value.name || other.value != "no");
                   });
        });
    return effective;
}

}  // namespace quorvane
