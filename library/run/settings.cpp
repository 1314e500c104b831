#include "library/run/settings.h"

#include <fmt/format.h>

#include <cmath>

#include "leveling/facts/destinations.h"
#include "leveling/facts/nearest_word.h"
#include "leveling/facts/own_destination.h"

namespace quorvane {
namespace {

/** The target's word; throws where it is none. */
std::string checked_target(const std::string& word) {
    const OwnDestination own = own_destination(word);
    if (!own.problem.empty()) {
        throw CallError(QUORVANE_BAD_OPTION, fmt::format("target \"{}\": {}", word, own.problem));
    }
    const auto destination = find_destination(word);
    if (!destination) {
        throw CallError(QUORVANE_BAD_OPTION,
                        fmt::format("target \"{}\" is unknown: use {}, or lufs=NUMBER:tp=NUMBER",
                                    word, listed_destinations()));
    }
    return destination->word;
}

std::string target_of(const quorvane_options& options) {
    const bool has_word = options.target != nullptr && *options.target != '\0';
    if (options.target_lufs == 0) {
        return has_word ? checked_target(options.target) : "";
    }
    if (has_word) {
        throw CallError(QUORVANE_BAD_OPTION,
                        "target and target_lufs are both set: use one of the two");
    }
    return checked_target(
        fmt::format("lufs={:f}:tp={:f}", options.target_lufs, options.target_dbtp));
}

/** A word for the engine; the files of a run are ours. */
std::string checked_tuning(const char* word) {
    const std::string text = word == nullptr ? "" : word;
    const std::size_t end = text.find('=');
    if (text.rfind("--", 0) != 0 || end == std::string::npos) {
        throw CallError(QUORVANE_BAD_OPTION,
                        fmt::format("tuning option \"{}\" is not of the form --name=value", text));
    }
    const std::string name = text.substr(2, end - 2);
    for (const char* other : {"input-file", "output-file"}) {
        // The engine accepts the beginning of a name for the name.
        if (name.empty() || std::string(other).rfind(name, 0) == 0) {
            throw CallError(QUORVANE_BAD_OPTION,
                            fmt::format("tuning option \"{}\" names a file: pass files and "
                                        "frames to the calls",
                                        text));
        }
    }
    return text;
}

void require_in_range(const char* name, int value, int most) {
    if (value < 0 || value > most) {
        throw CallError(QUORVANE_BAD_ARGUMENT,
                        fmt::format("{} is {}, not 0 to {}", name, value, most));
    }
}

}  // namespace

Settings settings_from(const quorvane_options& options) {
    require_in_range("measure", options.measure, QUORVANE_MEASURE_ALL);
    if (options.tuning == nullptr && options.tuning_count > 0) {
        throw CallError(QUORVANE_BAD_ARGUMENT,
                        "tuning is a null pointer, but tuning_count is not 0");
    }
    Settings settings;
    settings.target = target_of(options);
    settings.plain = options.plain != 0;
    settings.measure = options.measure;
    settings.second_thread = options.second_thread != 0;
    settings.replace = options.replace != 0;
    settings.strict = options.strict != 0;
    settings.salvage = options.salvage != 0;
    for (std::size_t i = 0; i < options.tuning_count; ++i) {
        settings.tuning.push_back(checked_tuning(options.tuning[i]));
    }
    if (options.memory_bytes != 0) {
        settings.memory_bytes = options.memory_bytes;
    }
    settings.scratch_folder = options.scratch_folder != nullptr ? options.scratch_folder : "";
    settings.progress = options.progress;
    settings.log = options.log;
    settings.context = options.context;
    return settings;
}

}  // namespace quorvane
