#include "cli/options/settings.h"

#include <fmt/format.h>

#include <algorithm>
#include <boost/algorithm/string/join.hpp>
#include <boost/algorithm/string/split.hpp>
#include <boost/lexical_cast.hpp>
#include <boost/program_options.hpp>
#include <sstream>
#include <thread>

#include "cli/facts/destinations.h"
#include "cli/options/option_table.h"

/*
 * Each option is a string to the parser, and what it means is checked here, so that a wrong value
 * gets a sentence that names the option and what it takes. Contradictions are refused and never
 * resolved by a silent rule: a typing error must not cost a file.
 */

namespace cli {
namespace po = boost::program_options;

namespace {

constexpr unsigned kMostJobs = 256;
constexpr std::size_t kMostFailures = 1'000'000'000;
constexpr unsigned kHelpWidth = 90;
constexpr unsigned kHelpTextWidth = 48;

po::options_description describe(OptionGroup group) {
    po::options_description description(title(group), kHelpWidth, kHelpTextWidth);
    for (const OptionRow& row : option_table()) {
        if (row.group != group) {
            continue;
        }
        std::string names = row.name;
        if (row.letter) {
            names += std::string(",") + row.letter;
        }
        if (!row.argument.empty()) {
            description.add_options()(names.c_str(),
                                      po::value<std::string>()->value_name(row.argument),
                                      row.help.c_str());
        } else {
            description.add_options()(names.c_str(), row.help.c_str());
        }
    }
    return description;
}

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

std::size_t parse_number(const char* name, const std::string& text, std::size_t most) {
    std::size_t number = 0;
    if (!read_number(text, number) || number < 1 || number > most) {
        throw UsageError(
            fmt::format("--{} takes a number from 1 to {}, not '{}'", name, most, text));
    }
    return number;
}

Shard parse_shard(const std::string& text) {
    Shard shard;
    const std::size_t slash = text.find('/');
    if (slash == std::string::npos || !read_number(text.substr(0, slash), shard.index) ||
        !read_number(text.substr(slash + 1), shard.count) || shard.index >= shard.count) {
        throw UsageError(fmt::format(
            "--shard takes I/N with I from 0 to N-1, such as 0/4 to 3/4, not '{}'", text));
    }
    return shard;
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

/** "podcast,spotify": the destinations' own words, each once. */
std::vector<std::string> parse_destinations(const std::string& text) {
    std::vector<std::string> given;
    boost::algorithm::split(given, text, [](char c) { return c == ','; });
    std::vector<std::string> words;
    for (const std::string& word : given) {
        const Destination* destination = find_destination(word);
        if (!destination) {
            throw UsageError(fmt::format("--for takes {} or apple, not '{}'",
                                         boost::algorithm::join(destination_words(), ", "), word));
        }
        if (std::find(words.begin(), words.end(), destination->word) == words.end()) {
            words.push_back(destination->word);
        }
    }
    return words;
}

void refuse_contradictions(const Settings& settings) {
    const auto refuse = [](bool wrong, const char* text) {
        if (wrong) {
            throw UsageError(text);
        }
    };
    refuse(settings.paths.empty() && settings.files_from.empty() && settings.plan.empty(),
           "name at least one file or folder");
    refuse(settings.null && settings.files_from.empty(), "--null belongs to --files-from");
    refuse(settings.force && settings.redo_changed,
           "--force and --redo-changed exclude each other");
    refuse(settings.force && settings.verify, "--force and --verify exclude each other");
    refuse(!settings.output.empty() && !settings.output_dir.empty(),
           "--output and --output-dir exclude each other");
    refuse(settings.suffix.find('/') != std::string::npos, "--suffix may not hold a '/'");
    refuse(settings.suffix.empty() && settings.output_dir.empty() && settings.output.empty(),
           "an empty --suffix needs --output-dir, else the output would be the input");
    refuse(settings.quiet && settings.verbose, "--quiet and --verbose exclude each other");
    refuse(settings.analyze && !settings.measure, "--analyze and --no-measure exclude each other");
    refuse(settings.analyze && !settings.output.empty(),
           "--analyze writes no audio, so --output has no meaning");
    refuse(settings.destinations.size() > 1 && !settings.analyze,
           "an output is made for one destination; --analyze checks several");
    refuse(!settings.destinations.empty() && !settings.measure,
           "--for measures what it writes, so it excludes --no-measure");
    refuse(!settings.measure && !settings.report.empty(),
           "--report shows the measurement, so it excludes --no-measure");
}

}  // namespace

Settings parse_command_line(int argc, const char* const* argv) {
    po::options_description options;
    for (OptionGroup group : option_groups()) {
        options.add(describe(group));
    }
    options.add_options()("path", po::value<std::vector<std::string>>());
    po::positional_options_description positional;
    positional.add("path", -1);

    po::variables_map values;
    try {
        // A long option that is cut short is refused: --for must not become --force.
        const int style =
            po::command_line_style::default_style & ~po::command_line_style::allow_guessing;
        po::store(po::command_line_parser(argc, argv)
                      .options(options)
                      .positional(positional)
                      .style(style)
                      .run(),
                  values);
        po::notify(values);
    } catch (const po::error& error) {
        throw UsageError(error.what());
    }

    Settings settings;
    const auto given = [&](const std::string& name) { return values.count(name) != 0; };
    const auto text = [&](const char* name, std::string& field) {
        if (!given(name)) {
            return;
        }
        field = values[name].as<std::string>();
        if (field.empty() && std::string(name) != "suffix") {
            throw UsageError(fmt::format("--{} needs a value that is not empty", name));
        }
    };
    settings.help = given("help");
    settings.version = given("version");
    if (settings.help || settings.version) {
        return settings;
    }

    if (given("path")) {
        settings.paths = values["path"].as<std::vector<std::string>>();
    }
    text("suffix", settings.suffix);
    text("output", settings.output);
    text("output-dir", settings.output_dir);
    text("report", settings.report);
    text("json", settings.json);
    if (given("for")) {
        settings.destinations = parse_destinations(values["for"].as<std::string>());
    }
    text("files-from", settings.files_from);
    text("plan", settings.plan);
    text("log", settings.log);
    settings.null = given("null");
    const auto value = [&](const char* name) { return values[name].as<std::string>(); };
    settings.jobs = static_cast<unsigned>(
        given("jobs") ? parse_number("jobs", value("jobs"), kMostJobs)
                      : std::clamp(std::thread::hardware_concurrency(), 1u, kMostJobs));
    if (given("max-failures")) {
        settings.max_failures = parse_number("max-failures", value("max-failures"), kMostFailures);
    }
    if (given("shard")) {
        settings.shard = parse_shard(value("shard"));
    }
    settings.redo_changed = given("redo-changed");
    settings.verify = given("verify");
    settings.curves = given("no-curves") ? Curves::Omit : Curves::Tell;
    text("audio-codec", settings.audio_codec);
    if (given("audio-stream")) {
        settings.audio_stream = parse_audio_stream(values["audio-stream"].as<std::string>());
    }
    settings.force = given("force");
    settings.keep_mtime = given("keep-mtime");
    settings.strict = given("strict");
    settings.dry_run = given("dry-run");
    settings.analyze = given("analyze");
    settings.measure = !given("no-measure");
    settings.listen = !given("no-listen");
    settings.quiet = given("quiet");
    settings.verbose = given("verbose");
    settings.color = parse_when(values, "color");
    settings.progress = parse_when(values, "progress");
    for (const OptionRow& row : option_table()) {
        if (row.group != OptionGroup::Tuning || !given(row.name)) {
            continue;
        }
        settings.tuning.push_back("--" + row.name + "=" + values[row.name].as<std::string>());
    }
    refuse_contradictions(settings);
    return settings;
}

std::string help_text() {
    std::ostringstream out;
    out << "Usage: quorvane [options] PATH...\n"
           "\n"
           "Levels the loudness of spoken-word recordings. A PATH is an audio file or a folder,\n"
           "which is searched with everything below it. talk.wav gives talk-leveled.wav.\n"
           "With --input-file the program takes one file through the engine and no more;\n"
           "'quorvane --input-file= --help' lists that command line.\n";
    for (OptionGroup group : option_groups()) {
        out << "\n" << describe(group);
    }
    out << "\n"
           "Exit status: 0 all done, 1 a file failed, 2 wrong usage, 4 a file is not ready for "
           "what\n"
           "--for names, 130 interrupted.\n";
    return out.str();
}

}  // namespace cli
