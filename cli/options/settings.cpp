#include "cli/options/settings.h"

#include <fmt/format.h>

#include <algorithm>
#include <boost/lexical_cast.hpp>
#include <boost/program_options.hpp>

#include "Common/step/option_errors.h"
#include "cli/options/contradictions.h"
#include "cli/options/help.h"
#include "cli/options/option_table.h"
#include "cli/options/option_values.h"
#include "leveling/advice/advice_table.h"
#include "leveling/channels/layout.h"
#include "leveling/facts/nearest_word.h"

/*
 * Each option is a string to the parser, and what it means is checked here, so that a wrong value
 * gets a sentence that names the option and what it takes. Contradictions are refused and never
 * resolved by a silent rule: a typing error must not cost a file.
 */

namespace quorvane {
namespace po = boost::program_options;

namespace {

// As good as no limit.
constexpr std::size_t kMostFailures = 1'000'000'000;

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
            // A switch that a file sets to "no" is the same as one that is not given.
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

    /** In the order in which they were given; empty without any. */
    std::vector<std::string> paths() const {
        return given("path") ? values_["path"].as<std::vector<std::string>>()
                             : std::vector<std::string>();
    }

  private:
    /** Whether the table has such an option with an argument, optional ones included. */
    static bool takes_argument(const std::string& name) {
        const std::vector<OptionRow>& table = option_table();
        return std::any_of(table.begin(), table.end(), [&](const OptionRow& row) {
            return row.name == name && !row.argument.empty();
        });
    }

    // Every option of the table, and "path" for the words without a name.
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
            // Throws UsageError for an unknown target, with the nearest known word.
            settings.destinations = parse_destinations(words.value(name));
        }
    }
    words.read("mix", settings.mix);
    words.read("channels", settings.channels);
    // Only checked here: a wrong word stops the run before any file is read.
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
    // Each field keeps its default where the option is not given.
    if (words.given("jobs")) {
        settings.jobs = static_cast<unsigned>(parse_number("jobs", words.value("jobs"), kMostJobs));
    }
    if (words.given("max-failures")) {
        settings.max_failures =
            parse_number("max-failures", words.value("max-failures"), kMostFailures);
    }
    // In seconds, 0 to 60, with decimals.
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

/** Options without a value: given or not. */
void read_switches(const Words& words, Settings& settings) {
    settings.redo_changed = words.given("redo-changed");
    settings.verify = words.given("verify");
    settings.curves = words.given("no-curves") ? Curves::Omit : Curves::Tell;
    settings.force = words.given("force");
    settings.keep_top = words.given("keep-top");
    settings.keep_mtime = words.given("keep-mtime");
    settings.plain = words.given("plain");
    settings.together = words.given("together");
    settings.align = words.given("align");
    settings.separate = words.given("separate");
    settings.strict = words.given("strict");
    settings.salvage = words.given("salvage");
    settings.dry_run = words.given("dry-run");
    settings.analyze = words.given("analyze");
    // These two are on unless they are switched off.
    settings.measure = !words.given("no-measure");
    settings.listen = !words.given("no-listen");
    settings.quiet = words.given("quiet");
    settings.verbose = words.given("verbose");
    if (words.given("color")) {
        settings.color = parse_when("color", words.value("color"));
    }
    if (words.given("progress")) {
        settings.progress = parse_when("progress", words.value("progress"));
    }
}

/** The code behind --explain, which the parser takes for a PATH; empty: all codes. */
std::string explained_code(const Words& words) {
    std::vector<std::string> codes = words.paths();
    // The value of --explain=CODE; in "--explain CODE" the code is the first PATH.
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
            // One word with "=", so that a value may begin with a hyphen.
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
    // A list of words, or a number. Files are checked by the code that opens them.
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
        // Only the engine's options need this: read_options() checks all others.
        if (row.name == value.name && row.group == OptionGroup::Tuning) {
            check_tuning(value, row);
        }
    }
    // As a command line with this value alone, so that both are checked by the same rules.
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
        // Whole names only: "--for" is not found in "--force".
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

/**
 * The whole way: words, then defaults from files below them, then values, then contradictions. A
 * contradiction that a file of defaults takes part in names that file.
 */
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
    // Contradictions are left unchecked: the listing is what helps to find them.
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
    // Without the two options that concern the listing alone.
    for (const ConfigValue& value : settings.values) {
        if (value.name != "show-config" && value.name != "no-config") {
            text += fmt::format("{:<40} ({})\n", fmt::format("{} = {}", value.name, value.value),
                                value.origin);
        }
    }
    return text + "every other option has its default\n";
}

}  // namespace quorvane
