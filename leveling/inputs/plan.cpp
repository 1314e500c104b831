#include "leveling/inputs/plan.h"

#include <fmt/format.h>

#include <algorithm>
#include <fstream>
#include <unordered_map>
#include <utility>

#include "leveling/audio/audio_formats.h"
#include "leveling/report/csv.h"
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

/** By device and inode; false where one of them does not exist. */
bool same_file(const fs::path& one, const fs::path& other) {
    std::error_code error;
    return fs::equivalent(one, other, error) && !error;
}

/** "talk.wav" as "talk-leveled.wav". */
fs::path with_suffix(const fs::path& name, const std::string& suffix) {
    return name.parent_path() / (name.stem().string() + suffix + name.extension().string());
}

/** Throws UsageError where --output is given with several inputs. */
void check_single_output(const OutputNames& names, const std::vector<FoundFile>& files) {
    if (names.output.empty()) {
        return;
    }
    if (files.size() > 1) {
        throw UsageError(
            fmt::format("--output names one file, but there are {} inputs", files.size()));
    }
    std::error_code ignored;
    if (fs::is_directory(names.output, ignored)) {
        throw UsageError(fmt::format("--output {} is a folder; --output-dir writes into a folder",
                                     names.output));
    }
    if (files.empty()) {
        return;
    }
    const std::string from = lower_extension(files.front().path);
    const std::string to = lower_extension(names.output);
    if (!same_container(from, to)) {
        throw UsageError(fmt::format(
            "--output {}: the output keeps the format of its input, so its name must end in .{}",
            names.output, from));
    }
}

/** The words at the start of every file that this program writes at the path. */
bool begins_with(const fs::path& path, const std::string& words) {
    std::ifstream in(path, std::ios::binary);
    std::string start(words.size(), '\0');
    in.read(&start[0], static_cast<std::streamsize>(start.size()));
    // An empty file may be replaced: nothing is lost.
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
std::vector<std::string> outputs_among(const OutputNames& names,
                                       const std::vector<FoundFile>& files,
                                       PathResolver& resolver) {
    std::vector<std::string> reasons(files.size());
    // With --output there is one input, which cannot be the output of another.
    if (!names.output.empty()) {
        return reasons;
    }
    // Where the files are, with the links of their folders followed.
    std::unordered_map<std::string, std::size_t> place_of;
    for (std::size_t i = 0; i < files.size(); ++i) {
        place_of[resolver.placed(files[i].path)] = i;
    }
    for (std::size_t i = 0; i < files.size(); ++i) {
        const std::string original = original_of(files[i].path, names.suffix);
        if (!original.empty() && place_of.count(resolver.placed(original)) != 0) {
            reasons[i] = "is an output: its name has the suffix, and its original is beside it";
        }
        const auto found = place_of.find(resolver.placed(output_of(names, files[i]).string()));
        // A file with the name of its own output is refused by plan_one().
        if (found != place_of.end() && found->second != i) {
            reasons[found->second] = "is the output of " + files[i].path;
        }
    }
    return reasons;
}

/** Throws UsageError for a device, a pipe or a folder, which a rename would replace. */
void require_regular(const fs::path& output) {
    std::error_code error;
    if (fs::exists(output, error) && !fs::is_regular_file(output, error)) {
        throw UsageError(
            fmt::format("the output {} exists and is not a regular file", output.string()));
    }
}

/** resolved_output: the output with all links followed. */
PlannedFile plan_one(const FoundFile& file,
                     const fs::path& output,
                     const std::string& resolved_output,
                     PathResolver& resolver) {
    // A link or a second name of the input is the input as well.
    if (resolved_output == resolver.resolved(file.path) || same_file(output, file.path)) {
        throw UsageError(
            fmt::format("the output {} is an input; inputs are never written", output.string()));
    }
    require_regular(output);
    return {file.path, output.string(), {}, {}};
}

/** Two inputs of one output: neither is worked on, as each might be the one that is meant. */
void report_clash(const OutputNames& names,
                  const std::string& output,
                  PlannedFile& one,
                  PlannedFile& other) {
    for (PlannedFile* file : {&one, &other}) {
        const std::string& second = file == &one ? other.input : one.input;
        file->problem = fmt::format(
            "its output {} would be that of {} too; {}", output, second,
            names.keep_top || names.output_dir.empty()
                ? "level them in runs of their own, with another --output-dir each"
                : fmt::format("--keep-top keeps the name of each PATH as a folder below {}",
                              names.output_dir));
        file->output.clear();
    }
}

}  // namespace

// --output, else --output-dir with the folders below the named one, else beside the input.
fs::path output_of(const OutputNames& names, const FoundFile& file) {
    if (!names.output.empty()) {
        return names.output;
    }
    if (!names.output_dir.empty()) {
        return fs::path(names.output_dir) / with_suffix(file.below, names.suffix);
    }
    return with_suffix(file.path, names.suffix);
}

std::vector<PlannedFile> plan_outputs(const OutputNames& names,
                                      const std::vector<FoundFile>& files) {
    check_single_output(names, files);
    PathResolver resolver;
    const std::vector<std::string> reasons = outputs_among(names, files, resolver);
    std::vector<PlannedFile> plan;
    std::vector<PlannedFile> passed_over;
    std::unordered_map<std::string, std::size_t> place_of;  // in the plan, of an output
    for (std::size_t i = 0; i < files.size(); ++i) {
        const FoundFile& file = files[i];
        if (!reasons[i].empty()) {
            passed_over.push_back({file.path, {}, reasons[i], {}});
            continue;
        }
        const fs::path output = output_of(names, file);
        const auto [other, first] =
            place_of.emplace(resolver.resolved(output.string()), plan.size());
        plan.push_back(plan_one(file, output, other->first, resolver));
        if (!first) {
            report_clash(names, output.string(), plan[other->second], plan.back());
        }
        plan.back().note = file.note;
        plan.back().searched = file.origin == FoundFile::Origin::Searched;
    }
    // Behind the plan: they are reported and not leveled.
    plan.insert(plan.end(), passed_over.begin(), passed_over.end());
    return plan;
}

std::vector<PlannedFile> plan_measurements(const std::vector<FoundFile>& files) {
    std::vector<PlannedFile> plan;
    for (const FoundFile& file : files) {
        plan.push_back({file.path, {}, {}, {}});
        plan.back().searched = file.origin == FoundFile::Origin::Searched;
    }
    return plan;
}

// An output keeps the input's format, so another extension would be a wrong name for it.
void check_outputs(const std::vector<PlannedFile>& files) {
    for (const PlannedFile& file : files) {
        const std::string from = lower_extension(file.input);
        if (!file.output.empty() && !file.mix &&
            !same_container(from, lower_extension(file.output))) {
            throw UsageError(fmt::format(
                "the output {} keeps the format of its input {}, so its name must end in .{}",
                file.output, file.input, from));
        }
        if (!file.output.empty()) {
            require_regular(file.output);
        }
    }
}

// A typing error must not replace a recording by a report: an existing file has to look like one.
void check_facts_paths(const Request& request, std::size_t inputs) {
    const auto check = [&](const char* option, const std::string& path, const char* start) {
        std::error_code ignored;
        if (!path.empty() && fs::is_regular_file(path, ignored) && !request.force &&
            !begins_with(path, start)) {
            throw UsageError(fmt::format(
                "--{} {} exists and does not look like such a file (--force replaces it)", option,
                path));
        }
    };
    std::error_code ignored;
    if (inputs > 1 && fs::is_regular_file(request.report, ignored)) {
        throw UsageError(fmt::format("--report {} is a file; for several inputs it names a folder",
                                     request.report));
    }
    check("report", request.report, kReportStart);
    if (fs::is_directory(request.report, ignored)) {
        check("report", request.report + "/index.html", kReportStart);
    }
    if (!request.json_on_standard_output()) {
        // Each line of such a file is an object.
        check("json", request.json, "{");
    }
    check("csv", request.csv, kCsvStart);
    for (const auto& [option, path] : {std::pair("json", request.json),
                                       {"csv", request.csv},
                                       {"log", request.log},
                                       {"failed", request.failed}}) {
        if (!path.empty() && fs::is_directory(path, ignored)) {
            throw UsageError(fmt::format("--{} {} is a folder", option, path));
        }
    }
    if (fs::is_regular_file(request.log, ignored) && !is_text(request.log)) {
        throw UsageError(fmt::format(
            "--log {} exists and is not a text file, so nothing is appended; name another file",
            request.log));
    }
}

}  // namespace quorvane
