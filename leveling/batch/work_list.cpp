#include "leveling/batch/work_list.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <string>
#include <utility>

#include "leveling/archive/bounded_lines.h"
#include "leveling/archive/file_list.h"
#include "leveling/archive/shards.h"
#include "leveling/archive/up_to_date.h"
#include "leveling/batch/groups.h"
#include "leveling/batch/settling.h"
#include "leveling/inputs/earlier_places.h"
#include "leveling/inputs/find_files.h"
#include "leveling/inputs/run_file_check.h"

/*
 * Which files a run is about, and what is known of each before it is looked into: from where it
 * came, where its output goes, whether that is there already and still right. All of it is cheap, a
 * few looks at names and times for each file, since a run over an archive repeats it every night.
 */

namespace quorvane {
namespace {

/** From the PATHs of the command line and of a list. */
WorkList search(const Request& request) {
    std::vector<std::string> paths = request.paths;
    if (!request.files_from.empty()) {
        auto listed = read_file_list(request.files_from,
                                     request.null ? ListSeparator::Null : ListSeparator::LineEnd);
        paths.insert(paths.end(), std::make_move_iterator(listed.begin()),
                     std::make_move_iterator(listed.end()));
    }
    const OwnOutputs own_outputs = request.analyze ? OwnOutputs::Take : OwnOutputs::LeaveOut;
    FoundFiles found =
        find_files(std::move(paths), {request.suffix, request.output_dir, own_outputs,
                                      request.keep_top ? Top::Keep : Top::Drop});
    // A replaced output goes to the place that this run means, wherever an earlier one put it.
    if (!request.analyze && !request.force) {
        keep_earlier_places(request, found.files);
    }
    WorkList work{
        request.analyze ? plan_measurements(found.files) : plan_outputs(request, found.files),
        std::move(found.unsupported), std::move(found.problems), std::move(found.passed_over)};
    for (PlannedFile& file : work.files) {
        const FileState input = state_of(file.input);
        file.bytes = input.size;
        file.settling = file.searched && file.skip.empty() && file.problem.empty() &&
                        !request.dry_run && is_young(input, request.settle_s);
    }
    if (request.together) {
        make_groups(request, work.files);
    }
    check_run_files(request, work.files);
    check_missing_inputs(request, work.missing);
    return work;
}

/** The work that a line of a plan requests; the plan may come from a run with other options. */
PlannedFile planned_again(const Request& request, const FileFacts& facts) {
    PlannedFile file;
    file.input = facts.input;
    file.output = request.analyze ? "" : facts.output;
    file.bytes = facts.bytes;
    // With an output it was skipped because of what is there, and that is judged again.
    if (facts.outcome == Outcome::Skipped && facts.output.empty()) {
        file.skip = facts.cause.empty() ? "the plan skips it" : facts.cause;
    }
    return file;
}

/** The lines of a dry run's JSON. What it did not find has been told, and is left out. */
WorkList read_plan(const Request& request) {
    const std::string& path = request.plan;
    std::ifstream in(path, std::ios::binary);
    // A folder opens and fails at the first byte.
    if (!in || (in.peek() == std::ifstream::traits_type::eof() && in.bad())) {
        throw UsageError(fmt::format("--plan {} cannot be read: {}", path, std::strerror(errno)));
    }
    WorkList work;
    PlannedGroups groups;
    BoundedLines lines(in, kMostJsonLineBytes);
    for (std::string line; lines.next(line);) {
        try {
            const FileFacts facts = facts_from_json(nlohmann::ordered_json::parse(line));
            if (facts.outcome != Outcome::Failed || !facts.output.empty()) {
                work.files.push_back(planned_again(request, facts));
                groups.add(facts, work.files.back());
            }
        } catch (const nlohmann::json::exception&) {
            throw UsageError(fmt::format("--plan {} is not the JSON of a dry run", path));
        }
    }
    check_outputs(work.files);
    groups.check(request, work.files);
    check_run_files(request, work.files);
    return work;
}

/**
 * Keeps the files of one shard; a conversation is not divided. The cut depends on names and sizes
 * alone, not on the machine.
 */
void take_shard(const Shard& shard, WorkList& work) {
    if (shard.count == 1) {
        return;
    }
    std::vector<ShardItem> items;
    std::vector<std::size_t> item_of(work.files.size());
    std::map<int, std::size_t> item_of_group;
    for (std::size_t i = 0; i < work.files.size(); ++i) {
        const PlannedFile& file = work.files[i];
        item_of[i] = items.size();
        if (file.group != 0) {
            item_of[i] = item_of_group.emplace(file.group, items.size()).first->second;
        }
        if (item_of[i] == items.size()) {
            items.push_back({file.input, 0});
        }
        items[item_of[i]].bytes += file.mix ? 0 : file.bytes;  // its input is a track's
    }
    const std::vector<std::size_t> shard_of = cut_shards(items, shard.count);
    std::vector<PlannedFile> mine;
    for (std::size_t i = 0; i < work.files.size(); ++i) {
        if (shard_of[item_of[i]] == shard.index) {
            mine.push_back(std::move(work.files[i]));
        }
    }
    work.files = std::move(mine);
    // Each is reported once.
    if (shard.index != 0) {
        work.missing.clear();
        work.passed_over.clear();
    }
}

std::shared_ptr<FileFacts> left_alone(const PlannedFile& file,
                                      Outcome outcome,
                                      const std::string& cause) {
    auto facts = std::make_shared<FileFacts>();
    facts->input = file.input;
    facts->output = file.output;
    facts->outcome = outcome;
    facts->cause = cause;
    return facts;
}

}  // namespace

FileFacts facts_of(SearchProblem problem, Outcome outcome) {
    FileFacts facts;
    facts.input = std::move(problem.path);
    facts.outcome = outcome;
    facts.cause = std::move(problem.cause);
    return facts;
}

void judge_outputs(const Request& request, std::vector<PlannedFile>& files) {
    const std::string destination =
        request.destinations.empty() ? "" : request.destinations.front();
    const auto judge_for = [&](const std::string& place, const std::string& together) {
        return UpToDate(options_key(request.tuning, request.measure, request.audio_stream,
                                    request.audio_codec, place, together, request.channels),
                        request.verify ? Proof::Content : Proof::SizeAndTime,
                        arithmetic_of(request.plain ? Way::Plain : Way::Prepared, place));
    };
    UpToDate alone = judge_for(destination, "");
    int group = 0;  // of these two
    std::unique_ptr<UpToDate> track;
    std::unique_ptr<UpToDate> mix;
    std::vector<std::vector<std::string>> input_hashes(files.size());
    for (std::size_t i = 0; i < files.size(); ++i) {
        PlannedFile& file = files[i];
        if (file.group != group && file.group != 0) {
            group = file.group;
            const std::string key = group_key(tracks_of(files, group), request.align);
            track = std::make_unique<UpToDate>(judge_for("", key));
            mix = std::make_unique<UpToDate>(judge_for(destination, key));
        }
        UpToDate& up_to_date = file.mix ? *mix : file.group != 0 ? *track : alone;
        if (file.settling || file.known) {
            continue;
        }
        if (!file.skip.empty()) {
            file.known = left_alone(file, Outcome::Skipped, file.skip);
        } else if (request.analyze) {
            continue;  // nothing is written
        } else if (request.force) {
            file.found = state_of(file.output);
        } else {
            const Judgement judgement = up_to_date.judge(file.input, file.output);
            file.found = judgement.output_state;
            file.renew = judgement.state == OutputState::Outdated ||
                         (request.redo_changed && is_redone(judgement.state));
            if (judgement.state == OutputState::UpToDate) {
                file.known =
                    std::make_shared<FileFacts>(facts_of(judgement, file.input, file.output));
                input_hashes[i] = judgement.input_hashes;
            } else if (judgement.state == OutputState::Damaged) {
                file.known = left_alone(file, Outcome::Damaged, judgement.cause);
            } else if (judgement.state != OutputState::Missing && !file.renew) {
                file.known = left_alone(file, Outcome::Skipped, judgement.cause);
                file.known->earlier_arithmetic = judgement.state == OutputState::Earlier;
            }
        }
    }
    judge_groups(files, input_hashes);
}

WorkList work_list(const Request& request) {
    WorkList work = request.plan.empty() ? search(request) : read_plan(request);
    take_shard(request.shard, work);
    judge_outputs(request, work.files);
    return work;
}

}  // namespace quorvane
