#include "desktop/intake/drop_plan.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <stdexcept>

#include "leveling/archive/up_to_date.h"
#include "leveling/inputs/file_kind.h"
#include "leveling/inputs/find_files.h"
#include "leveling/inputs/plan.h"
#include "leveling/inputs/run_file_check.h"
#include "leveling/request/request.h"

namespace desktop {
namespace fs = std::filesystem;

namespace {

/** A drop as the command line would level it. */
quorvane::Request request_for(const std::vector<std::string>& paths, const std::string& folder) {
    quorvane::Request request;
    request.paths = paths;
    request.output_dir = folder;
    return request;
}

/**
 * A named file is taken whatever its name. One that neither looks like sound nor begins like any
 * would only fail: it is named once instead. One of a foreign format gets a row, which tells why it
 * fails. No decoder sees a stranger's file in this process: that is left to the workers, which may
 * crash without harm.
 */
bool worth_a_row(const fs::path& path) {
    return quorvane::file_kind(path) != quorvane::FileKind::Other;
}

/** Fills in how the output stands, and the earlier facts of one that is up to date. */
void look_at_output(quorvane::UpToDate& up_to_date, DropFile& file) {
    std::error_code error;
    if (!fs::exists(fs::symlink_status(file.output, error))) {
        return;
    }
    const quorvane::Judgement judgement = up_to_date.judge(file.input, file.output);
    file.existing = Existing::Other;
    if (judgement.state == quorvane::OutputState::UpToDate) {
        file.existing = Existing::UpToDate;
        file.facts = std::make_shared<quorvane::FileFacts>(
            quorvane::facts_of(judgement, file.input, file.output));
    }
}

/**
 * By trying, as permissions tell too little: read-only volumes, network shares and sandboxes refuse
 * what the mode bits allow.
 */
bool can_write_in(const fs::path& folder) {
    std::string probe = (folder / ".quorvane-XXXXXX").string();
    const int file = mkstemp(probe.data());
    if (file < 0) {
        return false;
    }
    close(file);
    unlink(probe.c_str());
    return true;
}

/** Throws UsageError where an output cannot be made or would be another file of the drop. */
std::vector<quorvane::PlannedFile> checked_outputs(const quorvane::Request& request,
                                                   const std::vector<quorvane::FoundFile>& files) {
    std::vector<quorvane::PlannedFile> plan = quorvane::plan_outputs(request, files);
    quorvane::check_run_files(request, plan);
    return plan;
}

/**
 * The outputs of all files at once; where that is refused, of each by itself, so that one file's
 * trouble stays its own.
 */
std::vector<quorvane::PlannedFile> outputs_of(const quorvane::Request& request,
                                              const std::vector<quorvane::FoundFile>& files,
                                              std::vector<DropFile>& refused) {
    try {
        auto plan = checked_outputs(request, files);
        const bool clash = std::any_of(
            plan.begin(), plan.end(), [](const auto& planned) { return !planned.problem.empty(); });
        if (!clash) {
            return plan;
        }
    } catch (const quorvane::UsageError&) {  // NOLINT(bugprone-empty-catch): each by itself, then
    }
    std::vector<quorvane::PlannedFile> plan;
    for (const quorvane::FoundFile& file : files) {
        try {
            const auto one = checked_outputs(request, {file});
            plan.insert(plan.end(), one.begin(), one.end());
        } catch (const quorvane::UsageError& error) {
            refused.push_back({file.path, "", Existing::Nothing, error.what(), ""});
        }
    }
    return plan;
}

/** Tries each folder once, however many outputs go there. */
void find_locked_folders(DropPlan& plan) {
    std::set<std::string> seen;
    for (const DropFile& file : plan.files) {
        const fs::path folder = fs::path(file.output).parent_path();
        if (!file.output.empty() && seen.insert(folder.string()).second && !can_write_in(folder)) {
            plan.locked_folders.push_back(folder.string());
        }
    }
}

}  // namespace

DropPlan plan_drop(const std::vector<std::string>& paths, const std::string& output_folder) {
    const quorvane::Request request = request_for(paths, output_folder);
    quorvane::FoundFiles found = quorvane::find_files(request.paths, {request.suffix, ""});
    DropPlan plan;
    std::vector<quorvane::FoundFile> inputs;
    for (const quorvane::FoundFile& file : found.files) {
        if (worth_a_row(file.path)) {
            inputs.push_back(file);
        } else {
            plan.not_audio.push_back(file.path);
        }
    }
    quorvane::UpToDate up_to_date(quorvane::options_key(request.tuning, request.measure));
    std::set<std::string> taken;
    for (const quorvane::PlannedFile& planned : outputs_of(request, inputs, plan.files)) {
        DropFile file{planned.input, planned.output, Existing::Nothing, "", planned.skip};
        // Recordings of one name from several folders meet where the outputs go to one folder.
        if (!taken.insert(file.output).second) {
            file.output = free_name(file.output, taken);
            taken.insert(file.output);
        }
        look_at_output(up_to_date, file);
        plan.files.push_back(file);
    }
    // Sound all the same: it gets a row, as a recording that is silently missing would be missed
    // too late.
    for (const fs::path& path : found.unsupported) {
        plan.files.push_back({path.string(), "", Existing::Nothing, "", "not supported"});
    }
    for (const quorvane::SearchProblem& problem : found.problems) {
        plan.files.push_back({problem.path, "", Existing::Nothing, problem.cause, ""});
    }
    find_locked_folders(plan);
    return plan;
}

std::string free_name(const std::string& output, const std::set<std::string>& taken) {
    const fs::path path = output;
    const std::string start = (path.parent_path() / path.stem()).string();
    for (int number = 2;; ++number) {
        std::string name = fmt::format("{} {}{}", start, number, path.extension().string());
        std::error_code error;
        if (taken.count(name) == 0 && !fs::exists(fs::symlink_status(name, error))) {
            return name;
        }
    }
}

}  // namespace desktop
