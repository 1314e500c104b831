#include "cli/options/settings.h"

#include <fmt/format.h>

#include <algorithm>
#include <boost/algorithm/string/join.hpp>
#include <boost/algorithm/string/split.hpp>
#include <boost/lexical_cast.hpp>
#include <boost/program_options.hpp>

#include "Common/step/option_errors.h"
#include "cli/options/help.h"
#include "cli/options/option_table.h"
#include "leveling/advice/advice_table.h"
#include "leveling/channels/layout.h"
#include "leveling/facts/destinations.h"
#include "leveling/facts/nearest_word.h"
#include "leveling/facts/own_destination.h"

/*
 * Each option is a string to the parser, and what it means is checked here, so that a wrong value
 * gets a sentence that names the option and what it takes. Contradictions are refused and never
 * resolved by a silent rule: a typing error must not cost a file.
 */

namespace quorvane {
namespace po = boost::program_options;

namespace {

constexpr std::size_t kMostShards = 1'000'000;
constexpr std::size_t kMostFailures = 1'000'000'000;

/** "auto" where the option is absent. */
When parse_when(const po::variables_map& values, const char* name) {
    if (!values.count(name)) {
        return When::Auto;
    }
    const auto text = values[name].as<std::string>();
    if (text == "auto") {
        return When::Auto;
    }
    if (text == "always") {
        return When::Always;
    }
    if (text == "never") {
        return When::Never;
    }
    throw UsageError(fmt::format("--{} takes auto, always or never, not '{}'", name, text));
}

/** Reads decimal digits alone: no sign, no space, nothing behind them. */
bool read_number(const std::string& text, std::size_t& number) {
    return !text.empty() && text.find_first_not_of("0123456789") == std::string::npos &&
           boost::conversion::try_lexical_convert(text, number);
}

/** From 1 to most: 0 of anything would be no work at all, and is a slip. */
std::size_t parse_number(const char* name, const std::string& text, std::size_t most) {
    std::size_t number = 0;
    if (!read_number(text, number) || number < 1 || number > most) {
        throw UsageError(
            fmt::format("--{} takes a number from 1 to {}, not '{}'", name, most, text));
    }
    return number;
}

/** "I/N", counted from 0 as the task ids of job arrays are. */
Shard parse_shard(const std::string& text) {
    Shard shard;
    const std::size_t slash = text.find('/');
    if (slash == std::string::npos || !read_number(text.substr(0, slash), shard.index) ||
        !read_number(text.substr(slash + 1), shard.count) || shard.index >= shard.count) {
        throw UsageError(fmt::format(
            "--shard takes I/N with I from 0 to N-1, such as 0/4 to 3/4, not '{}'", text));
    }
    if (shard.count > kMostShards) {
        throw UsageError(
            fmt::format("--shard {}: the work is cut into {} parts at most", text, kMostShards));
    }
    return shard;
}

double parse_settle(const std::string& text) {
    constexpr double kMostSeconds = 60;  // as long as a run waits
    double seconds = 0;
    const bool decimal = text.find_first_not_of("0123456789.") == std::string::npos;
    if (!decimal || !boost::conversion::try_lexical_convert(text, seconds) ||
        seconds > kMostSeconds) {
        throw UsageError(
            fmt::format("--settle takes seconds from 0 to {}, not '{}'", kMostSeconds, text));
    }
    return seconds;
}

int parse_audio_stream(const std::string& text) {
    int number = 0;
    if (text == "all") {
        return kEveryAudioStream;
    }
    if (!boost::conversion::try_lexical_convert(text, number) || number < 1) {
        throw UsageError(
            fmt::format("--audio-stream takes a number from 1, or all, not '{}'", text));
    }
    return number;
}

/** Throws UsageError that names what is meant instead. */
[[noreturn]] void refuse_destination(const std::string& word) {
    if (const std::string problem = own_destination(word).problem; !problem.empty()) {
        throw UsageError(fmt::format("--for {}: {}", word, problem));
    }
    std::vector<std::string> words = all_destination_words();
    const std::string listed = boost::algorithm::join(words, ", ");
    words.emplace_back("lufs=-18:tp=-1.5");
    throw UsageError(fmt::format("--for takes {} or a target such as lufs=-18:tp=-1.5, not '{}'{}",
                                 listed, word, did_you_mean(word, words)));
}

/** "podcast,spotify": the destinations' own words, each once. */
std::vector<std::string> parse_destinations(const std::string& text) {
    std::vector<std::string> given;
    boost::algorithm::split(given, text, [](char c) { return c == ','; });
    std::vector<std::string> words;
    for (const std::string& word : given) {
        const std::optional<Destination> destination = find_destination(word);
        if (!destination) {
            refuse_destination(word);
        }
        // A place may have two words.
        if (std::find(words.begin(), words.end(), destination->word) == words.end()) {
            words.push_back(destination->word);
        }
    }
    return words;
}

/** What has no meaning for tracks that are leveled together. */
void refuse_with_together(const Settings& settings) {
    const auto refuse = [](bool wrong, const char* text) {
        if (wrong) {
            throw UsageError(text);
        }
    };
    refuse(settings.plain && !settings.channels.empty(),
           "--plain is the engine alone, which takes one sound of one or two channels");
    refuse(!settings.mix.empty() && !settings.together, "--mix belongs to --together");
    if (!settings.together) {
        return;
    }
    refuse(settings.separate, "--together and --separate exclude each other");
    refuse(!settings.output.empty(),
           "--output names one file, and --together writes one for each track; --output-dir names "
           "a folder");
    refuse(!settings.channels.empty(),
           "--channels is for files with several channels, --together for several files");
    refuse(settings.analyze, "--together levels, so it excludes --analyze");
    refuse(settings.plain, "--plain is the engine alone, which levels no tracks together");
    refuse(!settings.tuning.empty(),
           "--together uses no engine, so the options that tune it have no meaning");
    refuse(settings.shard.count > 1, "--together is one piece of work, so it excludes --shard");
    refuse(!settings.plan.empty(), "--together and --plan exclude each other");
    refuse(!settings.destinations.empty() && settings.mix.empty(),
           "with --together, --for is for the mix: name it with --mix FILE");
}

/** Throws UsageError for the first pair of options that cannot both be meant. */
void refuse_contradictions(const Settings& settings) {
    const auto refuse = [](bool wrong, const char* text) {
        if (wrong) {
            throw UsageError(text);
        }
    };
    refuse(settings.paths.empty() && settings.files_from.empty() && settings.plan.empty() &&
               settings.watch.empty(),
           "name at least one file or folder");
    refuse(settings.null && settings.files_from.empty() && settings.failed.empty(),
           "--null belongs to --files-from and --failed");
    refuse(settings.failed == "-", "--failed names a file, not the standard output");
    refuse(settings.csv == "-", "--csv names a file, not the standard output");
    refuse(settings.force && settings.redo_changed,
           "--force and --redo-changed exclude each other");
    refuse(settings.force && settings.verify, "--force and --verify exclude each other");
    refuse(!settings.output.empty() && !settings.output_dir.empty(),
           "--output and --output-dir exclude each other");
    refuse(settings.keep_top && settings.output_dir.empty(), "--keep-top belongs to --output-dir");
    refuse(settings.suffix.find('/') != std::string::npos, "--suffix may not hold a '/'");
    refuse(settings.suffix.empty() && settings.output_dir.empty() && settings.output.empty(),
           "an empty --suffix needs --output-dir, else the output would be the input");
    refuse_with_together(settings);
    refuse(settings.strict && settings.salvage, "--strict and --salvage exclude each other");
    refuse(settings.quiet && settings.verbose, "--quiet and --verbose exclude each other");
    refuse(settings.analyze && !settings.measure, "--analyze and --no-measure exclude each other");
    refuse(settings.analyze && !settings.output.empty(),
           "--analyze writes no audio, so --output has no meaning");
    refuse(settings.destinations.size() > 1 && !settings.analyze,
           "an output is made for one delivery target; --analyze checks several");
    refuse(!settings.destinations.empty() && !settings.measure,
           "--for measures what it writes, so it excludes --no-measure");
    refuse(!settings.measure && !settings.report.empty(),
           "--report shows the measurement, so it excludes --no-measure");
}

/** A watch has no end at which a report or a list could be written, and takes no other files. */
void refuse_beside_watch(const Settings& settings) {
    const std::pair<bool, const char*> kBelong[] = {
        {!settings.on_done.empty(), "--on-done"},
        {!settings.metrics.empty(), "--metrics"},
    };
    const std::pair<bool, const char*> kExcluded[] = {
        {!settings.paths.empty(), "PATHs"},
        {!settings.files_from.empty(), "--files-from"},
        {!settings.plan.empty(), "--plan"},
        {settings.shard.count > 1, "--shard"},
        {!settings.output.empty(), "--output"},
        {!settings.report.empty(), "--report"},
        {!settings.failed.empty(), "--failed"},
        {!settings.csv.empty(), "--csv"},
        {settings.max_failures != 0, "--max-failures"},
        {settings.dry_run, "--dry-run"},
        {settings.analyze, "--analyze"},
        {settings.force, "--force"},
        {settings.verify, "--verify"},
        {!settings.json.empty() && !settings.json_on_standard_output(),
         "--json FILE (but --json -)"},
    };
    for (const auto& [given, name] : kBelong) {
        if (given && settings.watch.empty()) {
            throw UsageError(fmt::format("{} belongs to --watch", name));
        }
    }
    for (const auto& [given, name] : kExcluded) {
        if (given && !settings.watch.empty()) {
            throw UsageError(fmt::format("--watch and {} exclude each other", name));
        }
    }
}

/** " (did you mean --report?)" for "--reprt", or "" where no option is near. */
std::string nearest_option(const std::string& typed) {
    std::vector<std::string> names;
    for (const OptionRow& row : option_table()) {
        names.push_back(row.name);
    }
    // Without the value: the parser keeps "--reprt=page.html" as one word.
    std::string name = typed.substr(0, typed.find('='));
    name.erase(0, name.find_first_not_of('-'));
    const std::string nearest = nearest_word(name, names);
    return nearest.empty() ? "" : fmt::format(" (did you mean --{}?)", nearest);
}

/** The values of a command line, by the options' names. */
class Words {
  public:
    /** Throws UsageError with the library's text: it names the word that is wrong. */
    Words(int argc, const char* const* argv) {
        for (OptionGroup group : option_groups()) {
            options_.add(describe(group));
        }
        options_.add_options()("path", po::value<std::vector<std::string>>());
        po::positional_options_description positional;
        positional.add("path", -1);
        // A long option that is cut short is refused: --for must not become --force.
        const int style =
            po::command_line_style::default_style & ~po::command_line_style::allow_guessing;
        try {
            po::store(po::command_line_parser(argc, argv)
                          .options(options_)
                          .positional(positional)
                          .style(style)
                          .run(),
                      values_);
            po::notify(values_);
        } catch (po::unknown_option& error) {
            throw UsageError(text_of_option_error(error) + nearest_option(error.get_option_name()));
        } catch (po::error& error) {
            throw UsageError(text_of_option_error(error));
        }
    }

    /** Adds what a file sets. The names are those of options that were not given. */
    void add(const std::vector<ConfigValue>& values) {
        po::parsed_options parsed(&options_);
        for (const ConfigValue& value : values) {
            const bool takes_one = takes_argument(value.name);
            if (value.source == ConfigSource::CommandLine || (!takes_one && value.value == "no")) {
                continue;
            }
            po::option option(value.name, {});
            if (takes_one) {
                option.value.push_back(value.value);
            }
            parsed.options.push_back(option);
        }
        try {
            po::store(parsed, values_);
        } catch (po::error& error) {
            throw UsageError(text_of_option_error(error));
        }
    }

    /** The options that were given. */
    std::vector<ConfigValue> options() const {
        std::vector<ConfigValue> options;
        for (const OptionRow& row : option_table()) {
            if (given(row.name)) {
                options.push_back({ConfigSource::CommandLine, row.name,
                                   row.argument.empty() ? "yes" : value(row.name), "command line"});
            }
        }
        return options;
    }

    bool given(const std::string& name) const { return values_.count(name) != 0; }

    /** Of an option that was given. */
    std::string value(const std::string& name) const { return values_[name].as<std::string>(); }

    /** Sets the field if the option was given; only a suffix may be empty. */
    void read(const char* name, std::string& field) const {
        if (!given(name)) {
            return;
        }
        field = value(name);
        if (field.empty() && std::string(name) != "suffix") {
            throw UsageError(fmt::format("--{} needs a value that is not empty", name));
        }
    }

    std::vector<std::string> paths() const {
        return given("path") ? values_["path"].as<std::vector<std::string>>()
                             : std::vector<std::string>();
    }

    const po::variables_map& all() const { return values_; }

  private:
    static bool takes_argument(const std::string& name) {
        const std::vector<OptionRow>& table = option_table();
        return std::any_of(table.begin(), table.end(), [&](const OptionRow& row) {
            return row.name == name && !row.argument.empty();
        });
    }

    po::options_description options_;
    po::variables_map values_;
};

/** What is read, and where to everything goes. */
void read_places(const Words& words, Settings& settings) {
    settings.paths = words.paths();
    words.read("suffix", settings.suffix);
    words.read("output", settings.output);
    words.read("output-dir", settings.output_dir);
    words.read("report", settings.report);
    words.read("json", settings.json);
    words.read("csv", settings.csv);
    if (words.given("for") && words.given("target")) {
        throw UsageError("--target is another word for --for: give one of them");
    }
    for (const char* name : {"for", "target"}) {
        if (words.given(name)) {
            settings.destinations = parse_destinations(words.value(name));
        }
    }
    words.read("mix", settings.mix);
    words.read("channels", settings.channels);
    if (ChannelUse use{}; !settings.channels.empty() && !use_from_text(settings.channels, use)) {
        throw UsageError(fmt::format("--channels takes tracks, dialogue, curve or each, not '{}'",
                                     settings.channels));
    }
    words.read("files-from", settings.files_from);
    words.read("watch", settings.watch);
    words.read("on-done", settings.on_done);
    words.read("metrics", settings.metrics);
    words.read("plan", settings.plan);
    words.read("log", settings.log);
    words.read("failed", settings.failed);
    settings.null = words.given("null");
}

/** How much of it is done, and how much at once. */
void read_amounts(const Words& words, Settings& settings) {
    if (words.given("jobs")) {
        settings.jobs = static_cast<unsigned>(parse_number("jobs", words.value("jobs"), kMostJobs));
    }
    if (words.given("max-failures")) {
        settings.max_failures =
            parse_number("max-failures", words.value("max-failures"), kMostFailures);
    }
    if (words.given("settle")) {
        settings.settle_s = parse_settle(words.value("settle"));
    }
    if (words.given("shard")) {
        settings.shard = parse_shard(words.value("shard"));
    }
    words.read("audio-codec", settings.audio_codec);
    if (words.given("audio-stream")) {
        settings.audio_stream = parse_audio_stream(words.value("audio-stream"));
    }
}

void read_switches(const Words& words, Settings& settings) {
    settings.redo_changed = words.given("redo-changed");
    settings.verify = words.given("verify");
    settings.curves = words.given("no-curves") ? Curves::Omit : Curves::Tell;
    settings.force = words.given("force");
    settings.keep_top = words.given("keep-top");
    settings.keep_mtime = words.given("keep-mtime");
    settings.plain = words.given("plain");
    settings.together = words.given("together");
    settings.separate = words.given("separate");
    settings.strict = words.given("strict");
    settings.salvage = words.given("salvage");
    settings.dry_run = words.given("dry-run");
    settings.analyze = words.given("analyze");
    settings.measure = !words.given("no-measure");
    settings.listen = !words.given("no-listen");
    settings.quiet = words.given("quiet");
    settings.verbose = words.given("verbose");
    settings.color = parse_when(words.all(), "color");
    settings.progress = parse_when(words.all(), "progress");
}

/** The code behind --explain, which the parser takes for a PATH; empty: all codes. */
std::string explained_code(const Words& words) {
    std::vector<std::string> codes = words.paths();
    if (const std::string code = words.value("explain"); !code.empty()) {
        codes.insert(codes.begin(), code);
    }
    if (codes.size() > 1) {
        throw UsageError("--explain takes one CODE");
    }
    std::string code = codes.empty() ? "" : codes.front();
    if (!code.empty() && !find_advice(code)) {
        throw UsageError(
            fmt::format("no finding has the code '{}'{}; --explain without a code "
                        "lists them all",
                        code, did_you_mean(code, advice_codes())));
    }
    return code;
}

/** The engine's options, as words for its own parser: what a value means is its affair. */
std::vector<std::string> tuning_words(const Words& words) {
    std::vector<std::string> tuning;
    for (const OptionRow& row : option_table()) {
        if (row.group == OptionGroup::Tuning && words.given(row.name)) {
            tuning.push_back("--" + row.name + "=" + words.value(row.name));
        }
    }
    return tuning;
}

/** Reads everything but the PATHs' meaning. Throws UsageError for a wrong value. */
void read_options(const Words& words, Settings& settings) {
    read_places(words, settings);
    read_amounts(words, settings);
    read_switches(words, settings);
    settings.tuning = tuning_words(words);
}

/** The engine reports a wrong value for each recording, which is late for a file of defaults. */
void check_tuning(const ConfigValue& value, const OptionRow& row) {
    const std::vector<const char*> words = choices(row.completion);
    double number = 0;
    if (!words.empty() && std::find(words.begin(), words.end(), value.value) == words.end()) {
        throw UsageError(fmt::format("--{} takes {}, not '{}'", value.name, fmt::join(words, ", "),
                                     value.value));
    }
    if (words.empty() && row.completion == Completion::None &&
        !boost::conversion::try_lexical_convert(value.value, number)) {
        throw UsageError(fmt::format("--{} takes a number, not '{}'", value.name, value.value));
    }
}

/** Throws UsageError for a wrong value of a file, whatever else is set. */
void check_value(const ConfigValue& value) {
    for (const OptionRow& row : option_table()) {
        if (row.name == value.name && row.group == OptionGroup::Tuning) {
            check_tuning(value, row);
        }
    }
    const char* const name = "quorvane";
    Words words(1, &name);
    words.add({value});
    Settings settings;
    read_options(words, settings);
}

/** Adds the defaults of the files to the words of the command line. */
void add_defaults(const ConfigPlaces& places, Words& words, Settings& settings) {
    Configuration found;
    if (!words.given("no-config")) {
        // A list or a plan may name files of any folder.
        const std::vector<std::string> paths =
            words.given("watch") ? std::vector<std::string>{words.value("watch")} : words.paths();
        found = read_configuration(places, config_folder(paths), check_value);
    }
    const std::vector<ConfigValue> given = words.options();
    found.values.insert(found.values.end(), given.begin(), given.end());
    settings.values = effective_values(found.values);
    settings.config_files = found.looked;
    settings.ignored_config = found.ignored;
    words.add(settings.values);
}

/** For a contradiction: which of the options that the text names come from a file. */
std::string origins_in(const std::string& text, const std::vector<ConfigValue>& values) {
    std::string origins;
    for (const ConfigValue& value : values) {
        const std::string name = "--" + value.name;
        const std::size_t at = text.find(name);
        const bool whole = at != std::string::npos &&
                           (at + name.size() == text.size() ||
                            std::string(" ,:").find(text[at + name.size()]) != std::string::npos);
        if (whole && value.source != ConfigSource::CommandLine) {
            origins += fmt::format("; {} is set by {}", name, value.origin);
        }
    }
    return origins.empty() ? origins : origins + " (--no-config ignores it)";
}

Settings parse(int argc, const char* const* argv, const ConfigPlaces* places) {
    Words words(argc, argv);
    Settings settings;
    settings.help = words.given("help");
    settings.version = words.given("version");
    if (words.given("explain")) {
        settings.explain = explained_code(words);
    }
    // Help is shown whatever else the line holds.
    if (settings.help || settings.version || settings.explain) {
        return settings;
    }
    settings.show_config = words.given("show-config");
    if (places != nullptr) {
        add_defaults(*places, words, settings);
    }
    read_options(words, settings);
    if (settings.show_config) {
        return settings;
    }
    try {
        refuse_contradictions(settings);
        refuse_beside_watch(settings);
    } catch (const UsageError& error) {
        throw UsageError(error.what() + origins_in(error.what(), settings.values));
    }
    return settings;
}

}  // namespace

Settings parse_command_line(int argc, const char* const* argv) {
    return parse(argc, argv, nullptr);
}

Settings parse_command_line(int argc, const char* const* argv, const ConfigPlaces& places) {
    return parse(argc, argv, &places);
}

std::string config_text(const Settings& settings) {
    std::string text;
    for (const std::string& file : settings.config_files) {
        text += fmt::format("{}\n", file);
    }
    for (const ConfigValue& value : settings.values) {
        if (value.name != "show-config" && value.name != "no-config") {
            text += fmt::format("{:<40} ({})\n", fmt::format("{} = {}", value.name, value.value),
                                value.origin);
        }
    }
    return text + "every other option has its default\n";
}

}  // namespace quorvane
