#include "cli/inputs/plan.h"

#include <fmt/format.h>

#include <fstream>
#include <map>
#include <set>

#include "cli/audio/audio_formats.h"
#include "cli/report/html.h"
#include "cli/terminal/terminal_text.h"

namespace cli {
namespace fs = std::filesystem;

namespace {

/** One spelling for every way to write a path that may not exist yet. */
fs::path resolved(const fs::path& path) {
    std::error_code error;
    fs::path result = fs::weakly_canonical(fs::absolute(path), error);
    return error ? fs::absolute(path).lexically_normal() : result;
}

bool same_file(const fs::path& one, const fs::path& other) {
    std::error_code error;
    return fs::equivalent(one, other, error) && !error;
}

fs::path with_suffix(const fs::path& name, const std::string& suffix) {
    return name.parent_path() / (name.stem().string() + suffix + name.extension().string());
}

fs::path output_of(const Settings& settings, const FoundFile& file) {
    if (!settings.output.empty()) {
        return settings.output;
    }
    if (!settings.output_dir.empty()) {
        return fs::path(settings.output_dir) / with_suffix(file.below, settings.suffix);
    }
    return with_suffix(file.path, settings.suffix);
}

void check_single_output(const Settings& settings, const std::vector<FoundFile>& files) {
    if (settings.output.empty()) {
        return;
    }
    if (files.size() > 1) {
        throw UsageError(
            fmt::format("--output names one file, but there are {} inputs", files.size()));
    }
    std::error_code ignored;
    if (fs::is_directory(settings.output, ignored)) {
        throw UsageError(fmt::format("--output {} is a folder; --output-dir writes into a folder",
                                     settings.output));
    }
    if (files.empty()) {
        return;
    }
    const std::string from = lower_extension(files.front().path.string());
    const std::string to = lower_extension(settings.output);
    if (!same_container(from, to)) {
        throw UsageError(fmt::format(
            "--output {}: the output keeps the format of its input, so its name must end in .{}",
            settings.output, from));
    }
}

/** The words at the start of every file that this program writes at the path. */
bool begins_with(const fs::path& path, const std::string& words) {
    std::ifstream in(path, std::ios::binary);
    std::string start(words.size(), '\0');
    in.read(&start[0], static_cast<std::streamsize>(start.size()));
    return in.gcount() == 0 || start == words;
}

}  // namespace

std::vector<PlannedFile> plan_outputs(const Settings& settings,
                                      const std::vector<FoundFile>& files) {
    check_single_output(settings, files);
    std::vector<PlannedFile> plan;
    std::set<fs::path> inputs;
    for (const FoundFile& file : files) {
        inputs.insert(resolved(file.path));
    }
    std::map<fs::path, fs::path> input_of;
    for (const FoundFile& file : files) {
        if (settings.analyze) {
            plan.push_back({file.path, {}, {}});
            continue;
        }
        const fs::path output = output_of(settings, file);
        const fs::path place = resolved(output);
        const auto [other, first] = input_of.emplace(place, file.path);
        if (!first) {
            throw UsageError(fmt::format("{} and {} would both be written to {}",
                                         other->second.string(), file.path.string(),
                                         output.string()));
        }
        std::error_code error;
        const bool exists = fs::exists(output, error);
        if (inputs.count(place) || (exists && same_file(output, file.path))) {
            throw UsageError(fmt::format("the output {} is an input; inputs are never written",
                                         output.string()));
        }
        PlannedFile planned{file.path, output, {}};
        if (exists && !fs::is_regular_file(output, error)) {
            throw UsageError(fmt::format("the output {} exists and is no regular file",
                                         printable(output.string())));
        }
        if (exists && !settings.force) {
            planned.skip = fmt::format("{} exists (--force replaces it)", output.string());
        }
        plan.push_back(planned);
    }
    // A hard link makes one file of an output and another input, under two names.
    for (const PlannedFile& planned : plan) {
        std::error_code error;
        if (planned.output.empty() || fs::hard_link_count(planned.output, error) < 2 || error) {
            continue;
        }
        for (const FoundFile& file : files) {
            if (same_file(planned.output, file.path)) {
                throw UsageError(fmt::format("the output {} is the same file as the input {}",
                                             planned.output.string(), file.path.string()));
            }
        }
    }
    return plan;
}

void check_facts_paths(const Settings& settings,
                       const std::vector<PlannedFile>& files,
                       bool several) {
    const auto check = [&](const char* option, const std::string& path, const char* start) {
        if (path.empty()) {
            return;
        }
        for (const PlannedFile& file : files) {
            if (resolved(path) == resolved(file.input) || same_file(path, file.input) ||
                (!file.output.empty() && resolved(path) == resolved(file.output))) {
                throw UsageError(
                    fmt::format("--{} {} is one of the audio files of this run", option, path));
            }
        }
        std::error_code ignored;
        if (fs::is_regular_file(path, ignored) && !settings.force && !begins_with(path, start)) {
            throw UsageError(fmt::format(
                "--{} {} exists and does not look like such a file (--force replaces it)", option,
                path));
        }
    };
    std::error_code ignored;
    if (several && fs::is_regular_file(settings.report, ignored)) {
        throw UsageError(fmt::format("--report {} is a file; for several inputs it names a folder",
                                     settings.report));
    }
    check("report", settings.report, kReportStart);
    if (fs::is_directory(settings.report, ignored)) {
        check("report", settings.report + "/index.html", kReportStart);
    }
    if (settings.json_on_standard_output()) {
        return;
    }
    check("json", settings.json, "{");
    if (!settings.json.empty() && fs::is_directory(settings.json, ignored)) {
        throw UsageError(fmt::format("--json {} is a folder", settings.json));
    }
    if (!settings.json.empty() && !settings.report.empty() &&
        resolved(settings.json) == resolved(settings.report)) {
        throw UsageError("--json and --report name the same file");
    }
}

}  // namespace cli
