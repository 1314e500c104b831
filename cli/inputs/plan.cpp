#include "cli/inputs/plan.h"

#include <fmt/format.h>
#include <sys/stat.h>

#include <fstream>
#include <map>
#include <unordered_map>
#include <utility>

#include "cli/audio/audio_formats.h"
#include "cli/report/html.h"

/*
 * Paths are compared in three ways, each for its purpose. Resolved, with all links followed: would
 * two outputs be one file? Placed, with only the folder's links followed: is this file the very
 * name under which another one's output goes? And by device and inode: are two names one file,
 * through whatever links? The last is what keeps an input from being written, and is one look-up
 * for each output.
 */

namespace cli {
namespace fs = std::filesystem;

namespace {

/** One spelling for every way to write a path that may not exist yet. */
std::string resolved(const fs::path& path) {
    std::error_code error;
    const fs::path result = fs::weakly_canonical(fs::absolute(path), error);
    return (error ? fs::absolute(path).lexically_normal() : result).string();
}

/** The same of many files, most of which share their folders: a folder is resolved once. */
class Resolver {
  public:
    std::string resolved(const std::string& path) {
        std::error_code error;
        return fs::is_symlink(path, error) ? cli::resolved(path) : placed(path);
    }

    /** Of a name that may be a link: the link itself, not what it leads to. */
    std::string placed(const std::string& path) {
        const std::size_t slash = path.rfind('/');
        const std::string folder = slash == std::string::npos ? "." : path.substr(0, slash + 1);
        const auto [known, is_new] = folders_.emplace(folder, "");
        if (is_new) {
            known->second = fs::path(cli::resolved(folder)) / "";
        }
        return known->second.string() +
               (slash == std::string::npos ? path : path.substr(slash + 1));
    }

  private:
    std::map<std::string, fs::path> folders_;
};

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

/** Whether the name ends in the suffix and a file without it stands beside. */
bool is_beside_its_original(const fs::path& path, const std::string& suffix) {
    const std::string stem = path.stem().string();
    if (suffix.empty() || stem.size() <= suffix.size() ||
        stem.compare(stem.size() - suffix.size(), suffix.size(), suffix) != 0) {
        return false;
    }
    std::error_code error;
    const std::string original = stem.substr(0, stem.size() - suffix.size());
    return fs::is_regular_file(path.parent_path() / (original + path.extension().string()), error);
}

/** By place in `files`, why a file is an output and no input of this run; empty for inputs. */
std::vector<std::string> outputs_among(const Settings& settings,
                                       const std::vector<FoundFile>& files,
                                       Resolver& resolver) {
    std::vector<std::string> reasons(files.size());
    if (settings.analyze || !settings.output.empty()) {
        return reasons;
    }
    std::unordered_map<std::string, std::size_t> place_of;
    for (std::size_t i = 0; i < files.size(); ++i) {
        place_of[resolver.placed(files[i].path)] = i;
        if (is_beside_its_original(files[i].path, settings.suffix)) {
            reasons[i] = "is an output: it bears the suffix beside its original";
        }
    }
    for (std::size_t i = 0; i < files.size(); ++i) {
        const auto found = place_of.find(resolver.placed(output_of(settings, files[i]).string()));
        if (found != place_of.end() && found->second != i) {
            reasons[found->second] = "is the output of " + files[i].path;
        }
    }
    return reasons;
}

/** A hard link makes one file of an output and an input under two names. */
void refuse_linked_inputs(const std::vector<PlannedFile>& plan) {
    using Identity = std::pair<dev_t, ino_t>;
    const auto identity = [](const fs::path& path, struct stat& status) {
        return stat(path.c_str(), &status) == 0 ? Identity{status.st_dev, status.st_ino}
                                                : Identity{};
    };

    struct stat status {};

    std::map<Identity, const PlannedFile*> inputs;
    for (const PlannedFile& planned : plan) {
        if (const Identity file = identity(planned.input, status); file != Identity{}) {
            inputs.emplace(file, &planned);
        }
    }
    for (const PlannedFile& planned : plan) {
        const Identity file =
            planned.output.empty() ? Identity{} : identity(planned.output, status);
        const auto found = file == Identity{} ? inputs.end() : inputs.find(file);
        if (found != inputs.end()) {
            throw UsageError(fmt::format("the output {} is the same file as the input {}",
                                         planned.output, found->second->input));
        }
    }
}

/** resolved_output: the output with all links followed. */
PlannedFile plan_one(const FoundFile& file,
                     const fs::path& output,
                     const std::string& resolved_output,
                     Resolver& resolver) {
    std::error_code error;
    const bool exists = fs::exists(output, error);
    if (resolved_output == resolver.resolved(file.path) ||
        (exists && same_file(output, file.path))) {
        throw UsageError(
            fmt::format("the output {} is an input; inputs are never written", output.string()));
    }
    if (exists && !fs::is_regular_file(output, error)) {
        throw UsageError(
            fmt::format("the output {} exists and is no regular file", output.string()));
    }
    return {file.path, output.string(), {}, {}};
}

}  // namespace

std::vector<PlannedFile> plan_outputs(const Settings& settings,
                                      const std::vector<FoundFile>& files) {
    check_single_output(settings, files);
    Resolver resolver;
    const std::vector<std::string> reasons = outputs_among(settings, files, resolver);
    std::vector<PlannedFile> plan;
    std::vector<PlannedFile> passed_over;
    std::unordered_map<std::string, std::size_t> input_of;  // place in files
    for (std::size_t i = 0; i < files.size(); ++i) {
        const FoundFile& file = files[i];
        if (settings.analyze) {
            plan.push_back({file.path, {}, {}, {}});
            continue;
        }
        if (!reasons[i].empty()) {
            passed_over.push_back({file.path, {}, reasons[i], {}});
            continue;
        }
        const fs::path output = output_of(settings, file);
        const auto [other, first] = input_of.emplace(resolver.resolved(output.string()), i);
        if (!first) {
            throw UsageError(fmt::format("{} and {} would both be written to {}",
                                         files[other->second].path, file.path, output.string()));
        }
        plan.push_back(plan_one(file, output, other->first, resolver));
    }
    refuse_linked_inputs(plan);
    plan.insert(plan.end(), passed_over.begin(), passed_over.end());
    return plan;
}

void check_facts_paths(const Settings& settings,
                       const std::vector<PlannedFile>& files,
                       std::size_t inputs) {
    Resolver resolver;
    const auto check = [&](const char* option, const std::string& path, const char* start) {
        if (path.empty()) {
            return;
        }
        std::error_code ignored;
        const std::string place = resolved(path);
        const bool exists = fs::exists(path, ignored);
        for (const PlannedFile& file : files) {
            if (place == resolver.resolved(file.input) || (exists && same_file(path, file.input)) ||
                (!file.output.empty() && place == resolver.resolved(file.output))) {
                throw UsageError(
                    fmt::format("--{} {} is one of the audio files of this run", option, path));
            }
        }
        if (fs::is_regular_file(path, ignored) && !settings.force && !begins_with(path, start)) {
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
