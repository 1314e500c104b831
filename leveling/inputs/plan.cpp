#include "leveling/inputs/plan.h"

#include <fmt/format.h>

#include <algorithm>
#include <fstream>
#include <unordered_map>
#include <utility>

#include "leveling/audio/audio_formats.h"
#include "leveling/inputs/run_file_check.h"
#include "leveling/report/html.h"
#include "leveling/storage/run_files.h"

/*
 * Paths are compared in two ways here. Resolved, with all links followed: would two outputs be one
 * file? Placed, with only the folder's links followed: is this file the very name under which
 * another one's output goes? What keeps an input from being written is check_run_files.
 */

namespace quorvane {
namespace fs = std::filesystem;

namespace {

bool same_file(const fs::path& one, const fs::path& other) {
    std::error_code error;
    return fs::equivalent(one, other, error) && !error;
}

fs::path with_suffix(const fs::path& name, const std::string& suffix) {
    return name.parent_path() / (name.stem().string() + suffix + name.extension().string());
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
    const std::string from = lower_extension(files.front().path);
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

/** By its first bytes: a recording has null bytes in its header, a log has none. */
bool is_text(const fs::path& path) {
    char start[512];
    std::ifstream in(path, std::ios::binary);
    in.read(start, sizeof start);
    return std::find(start, start + in.gcount(), '\0') == start + in.gcount();
}

/** The path without the suffix at the end of its name; "" when the name has none. */
std::string original_of(const fs::path& path, const std::string& suffix) {
    const std::string stem = path.stem().string();
    if (suffix.empty() || stem.size() <= suffix.size() ||
        stem.compare(stem.size() - suffix.size(), suffix.size(), suffix) != 0) {
        return "";
    }
    const std::string original = stem.substr(0, stem.size() - suffix.size());
    return (path.parent_path() / (original + path.extension().string())).string();
}

/** By place in `files`, why a file is an output and no input of this run; empty for inputs. */
std::vector<std::string> outputs_among(const Settings& settings,
                                       const std::vector<FoundFile>& files,
                                       PathResolver& resolver) {
    std::vector<std::string> reasons(files.size());
    if (settings.analyze || !settings.output.empty()) {
        return reasons;
    }
    std::unordered_map<std::string, std::size_t> place_of;
    for (std::size_t i = 0; i < files.size(); ++i) {
        place_of[resolver.placed(files[i].path)] = i;
    }
    for (std::size_t i = 0; i < files.size(); ++i) {
        const std::string original = original_of(files[i].path, settings.suffix);
        if (!original.empty() && place_of.count(resolver.placed(original)) != 0) {
            reasons[i] = "is an output: it bears the suffix beside its original";
        }
        const auto found = place_of.find(resolver.placed(output_of(settings, files[i]).string()));
        if (found != place_of.end() && found->second != i) {
            reasons[found->second] = "is the output of " + files[i].path;
        }
    }
    return reasons;
}

void require_regular(const fs::path& output) {
    std::error_code error;
    if (fs::exists(output, error) && !fs::is_regular_file(output, error)) {
        throw UsageError(
            fmt::format("the output {} exists and is no regular file", output.string()));
    }
}

/** resolved_output: the output with all links followed. */
PlannedFile plan_one(const FoundFile& file,
                     const fs::path& output,
                     const std::string& resolved_output,
                     PathResolver& resolver) {
    if (resolved_output == resolver.resolved(file.path) || same_file(output, file.path)) {
        throw UsageError(
            fmt::format("the output {} is an input; inputs are never written", output.string()));
    }
    require_regular(output);
    return {file.path, output.string(), {}, {}};
}

/** Two inputs of one output: neither is worked on, as each might be the one that is meant. */
void report_clash(const Settings& settings,
                  const std::string& output,
                  PlannedFile& one,
                  PlannedFile& other) {
    for (PlannedFile* file : {&one, &other}) {
        const std::string& second = file == &one ? other.input : one.input;
        file->problem = fmt::format(
            "its output {} would be that of {} too; {}", output, second,
            settings.keep_top || settings.output_dir.empty()
                ? "level them in runs of their own, with another --output-dir each"
                : fmt::format("--keep-top keeps the name of each PATH as a folder below {}",
                              settings.output_dir));
        file->output.clear();
    }
}

}  // namespace

fs::path output_of(const Settings& settings, const FoundFile& file) {
    if (!settings.output.empty()) {
        return settings.output;
    }
    if (!settings.output_dir.empty()) {
        return fs::path(settings.output_dir) / with_suffix(file.below, settings.suffix);
    }
    return with_suffix(file.path, settings.suffix);
}

std::vector<PlannedFile> plan_outputs(const Settings& settings,
                                      const std::vector<FoundFile>& files) {
    check_single_output(settings, files);
    PathResolver resolver;
    const std::vector<std::string> reasons = outputs_among(settings, files, resolver);
    std::vector<PlannedFile> plan;
    std::vector<PlannedFile> passed_over;
    std::unordered_map<std::string, std::size_t> place_of;  // in the plan, of an output
    for (std::size_t i = 0; i < files.size(); ++i) {
        const FoundFile& file = files[i];
        if (settings.analyze) {
            plan.push_back({file.path, {}, {}, {}});
            plan.back().searched = file.origin == FoundFile::Origin::Searched;
            continue;
        }
        if (!reasons[i].empty()) {
            passed_over.push_back({file.path, {}, reasons[i], {}});
            continue;
        }
        const fs::path output = output_of(settings, file);
        const auto [other, first] =
            place_of.emplace(resolver.resolved(output.string()), plan.size());
        plan.push_back(plan_one(file, output, other->first, resolver));
        if (!first) {
            report_clash(settings, output.string(), plan[other->second], plan.back());
        }
        plan.back().note = file.note;
        plan.back().searched = file.origin == FoundFile::Origin::Searched;
    }
    plan.insert(plan.end(), passed_over.begin(), passed_over.end());
    check_run_files(settings, plan);
    return plan;
}

void check_outputs(const std::vector<PlannedFile>& files) {
    for (const PlannedFile& file : files) {
        const std::string from = lower_extension(file.input);
        if (!file.output.empty() && !same_container(from, lower_extension(file.output))) {
            throw UsageError(fmt::format(
                "the output {} keeps the format of its input {}, so its name must end in .{}",
                file.output, file.input, from));
        }
        if (!file.output.empty()) {
            require_regular(file.output);
        }
    }
}

void check_facts_paths(const Settings& settings, std::size_t inputs) {
    const auto check = [&](const char* option, const std::string& path, const char* start) {
        std::error_code ignored;
        if (!path.empty() && fs::is_regular_file(path, ignored) && !settings.force &&
            !begins_with(path, start)) {
            throw UsageError(fmt::format(
                "--{} {} exists and does not look like such a file (--force replaces it)", option,
                path));
        }
    };
    std::error_code ignored;
    if (inputs > 1 && fs::is_regular_file(settings.report, ignored)) {
        throw UsageError(fmt::format("--report {} is a file; for several inputs it names a folder",
                                     settings.report));
    }
    check("report", settings.report, kReportStart);
    if (fs::is_directory(settings.report, ignored)) {
        check("report", settings.report + "/index.html", kReportStart);
    }
    if (!settings.json_on_standard_output()) {
        check("json", settings.json, "{");
    }
    for (const auto& [option, path] :
         {std::pair("json", settings.json), {"log", settings.log}, {"failed", settings.failed}}) {
        if (!path.empty() && fs::is_directory(path, ignored)) {
            throw UsageError(fmt::format("--{} {} is a folder", option, path));
        }
    }
    if (fs::is_regular_file(settings.log, ignored) && !is_text(settings.log)) {
        throw UsageError(fmt::format(
            "--log {} exists and is not a text file, so nothing is appended; name another file",
            settings.log));
    }
}

}  // namespace quorvane
