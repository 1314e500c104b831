#include "cli/options/contradictions.h"

#include <fmt/format.h>

#include <utility>

namespace quorvane {
namespace {

/** Throws UsageError with the text if the settings are wrong in that way. */
void refuse(bool wrong, const char* text) {
    if (wrong) {
        throw UsageError(text);
    }
}

/** What has no meaning for tracks that are leveled together. */
void refuse_with_together(const Settings& settings) {
    refuse(settings.plain && !settings.channels.empty(),
           "--plain is the engine alone, which takes one sound of one or two channels");
    refuse(!settings.mix.empty() && !settings.together, "--mix belongs to --together");
    refuse(settings.align && !settings.together, "--align belongs to --together");
    if (!settings.together) {
        return;
    }
    // The tracks have one gain curve each and are written side by side.
    refuse(settings.separate, "--together and --separate exclude each other");
    refuse(!settings.output.empty(),
           "--output names one file, and --together writes one for each track; --output-dir names "
           "a folder");
    refuse(!settings.channels.empty(),
           "--channels is for files with several channels, --together for several files");
    refuse(settings.analyze, "--together levels, so it excludes --analyze");
    // The engine levels one file at a time.
    refuse(settings.plain, "--plain is the engine alone, which levels no tracks together");
    refuse(!settings.tuning.empty(),
           "--together uses no engine, so the options that tune it have no meaning");
    refuse(!settings.destinations.empty() && settings.mix.empty(),
           "with --together, --for is for the mix: name it with --mix FILE");
}

}  // namespace

void refuse_contradictions(const Settings& settings) {
    refuse(settings.paths.empty() && settings.files_from.empty() && settings.plan.empty() &&
               settings.watch.empty(),
           "name at least one file or folder");
    // Options that need another one.
    refuse(settings.null && settings.files_from.empty() && settings.failed.empty(),
           "--null belongs to --files-from and --failed");
    refuse(settings.failed == "-", "--failed names a file, not the standard output");
    refuse(settings.csv == "-", "--csv names a file, not the standard output");
    // Two rules for outputs that exist.
    refuse(settings.force && settings.redo_changed,
           "--force and --redo-changed exclude each other");
    refuse(settings.force && settings.verify, "--force and --verify exclude each other");
    // Two names for one output, or none that differs from the input.
    refuse(!settings.output.empty() && !settings.output_dir.empty(),
           "--output and --output-dir exclude each other");
    refuse(settings.keep_top && settings.output_dir.empty(), "--keep-top belongs to --output-dir");
    refuse(settings.suffix.find('/') != std::string::npos, "--suffix may not hold a '/'");
    refuse(settings.suffix.empty() && settings.output_dir.empty() && settings.output.empty(),
           "an empty --suffix needs --output-dir, else the output would be the input");
    refuse_with_together(settings);
    // Two answers to one question.
    refuse(settings.strict && settings.salvage, "--strict and --salvage exclude each other");
    refuse(settings.quiet && settings.verbose, "--quiet and --verbose exclude each other");
    // A measurement is what these are about.
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

// A watch has no end at which a report or a list could be written, and takes no other files.
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
        {settings.together, "--together"},
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

}  // namespace quorvane
