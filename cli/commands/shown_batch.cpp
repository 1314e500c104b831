#include "cli/commands/shown_batch.h"

#include <fmt/format.h>

#include <algorithm>
#include <boost/algorithm/string/trim.hpp>
#include <filesystem>
#include <map>
#include <memory>
#include <utility>

#include "leveling/archive/shards.h"
#include "leveling/batch/groups.h"
#include "leveling/batch/preflight.h"
#include "leveling/batch/settling.h"
#include "leveling/batch/work_list.h"
#include "leveling/words/text.h"

namespace quorvane {
namespace fs = std::filesystem;

namespace {

/** A file that is only measured is made for no destination. */
JobOptions options_of(const Settings& settings) {
    JobOptions options = job_options(settings);
    if (settings.analyze) {
        options.destination.clear();
    }
    return options;
}

/** Facts for a file whose work was not started. The cause is that of --max-failures. */
FileFacts never_begun(const PlannedFile& file) {
    FileFacts facts;
    facts.input = file.input;
    facts.output = file.output;
    facts.cause = "not begun, as too many files had failed";
    return facts;
}

}  // namespace

double seconds_since(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

void add_note(const PlannedFile& file, FileFacts& facts) {
    add_conversation(file, facts);
    if (!file.note.empty() && !is_failure(facts.outcome) && facts.outcome != Outcome::Skipped) {
        facts.notes.push_back(file.note);
    }
}

// The whole bar advances by bytes, not by files, so that one long recording among short ones does
// not make it stop.
ShownBatch::ShownBatch(const Settings& settings,
                       std::vector<PlannedFile>& plan,
                       ResultFiles& results,
                       Screen& screen,
                       JsonLines& lines)
    : settings_(settings),
      plan_(plan),
      results_(results),
      screen_(screen),
      lines_(lines),
      batch_(settings.jobs, options_of(settings), *this),
      signals_(batch_),
      files_(plan.size()) {
    for (std::size_t i = 0; i < plan.size(); ++i) {
        // A little for each file, so that many small ones count too.
        files_[i].weight = static_cast<double>(plan[i].bytes + kBytesPerFile);
        all_weight_ += files_[i].weight;
    }
}

// Files that are still being written are left to the end: they have the longest time to settle, and
// a second pass takes those that have.
void ShownBatch::run() {
    work_through();
    if (settle()) {
        work_through();
    }
    for (std::size_t i = 0; i < plan_.size(); ++i) {
        // Without an end until now: a failure limit or a signal came first.
        if (!files_[i].ended) {
            FileFacts facts = never_begun(plan_[i]);
            facts.cause = signal() != 0 ? "stopped" : facts.cause;
            end(i, facts);
        }
    }
}

void ShownBatch::started(std::size_t index) {
    // The index counts what was queued; places_ holds its place in the plan.
    running_.push_back(places_[index]);
    file(index).started = Clock::now();
    file(index).begun = true;
}

// The engine ends its texts with line ends of its own.
void ShownBatch::messages(std::size_t /*index*/, const std::string& text) {
    if (settings_.verbose) {
        screen_.line(printable_lines(
            boost::algorithm::trim_right_copy_if(text, [](char c) { return c == '\n'; })));
    }
}

// With --max-failures N the N-th failure cancels what has not started; files in work run to their
// end.
void ShownBatch::finished(std::size_t index, const FileFacts& facts) {
    const std::size_t place = places_[index];
    tell_missing_fences(facts);
    running_.erase(std::remove(running_.begin(), running_.end(), place), running_.end());
    // Files that were cancelled because of it end here as well, and say why.
    const bool had_enough = enough_failures();
    end(place, had_enough && !files_[place].begun ? never_begun(plan_[place]) : facts);
    // The failure that reaches the limit cancels the rest, once.
    if (enough_failures() && !had_enough) {
        for (std::size_t i = 0; i < places_.size(); ++i) {
            if (!file(i).begun) {
                batch_.cancel(i);
            }
        }
    }
}

// Called several times a second while files are worked on.
void ShownBatch::tick() {
    if (signals_.take_resize()) {
        screen_.resized();
    }
    if (screen_.wants_drawing() && !running_.empty()) {
        draw();
    }
}

// Works on all files that are not at their end and have settled.
void ShownBatch::work_through() {
    // All are counted first, so that the first line of a shared cause has their number.
    shared_ = {};
    for (std::size_t i = 0; i < plan_.size(); ++i) {
        if (plan_[i].known && !files_[i].ended) {
            shared_.add(*plan_[i].known);
        }
    }
    for (std::size_t i = 0; i < plan_.size(); ++i) {
        if (plan_[i].known && !files_[i].ended) {
            end(i, *plan_[i].known);
        }
    }
    queue_files();
    batch_.close();
    batch_.run();
    screen_.clear();
}

// The tracks of each conversation go in as one group, behind the single files.
void ShownBatch::queue_files() {
    std::map<int, std::vector<std::size_t>> groups;
    for (std::size_t i = 0; i < plan_.size() && !enough_failures(); ++i) {
        const PlannedFile& planned = plan_[i];
        // The second pass takes what is still being written.
        if (planned.settling || files_[i].ended) {
            continue;
        }
        if (planned.group != 0) {
            groups[planned.group].push_back(i);
        } else {
            places_.push_back(i);
            batch_.add(planned.input, planned.output, existing_of(planned), planned.found);
        }
    }
    for (const auto& [group, places] : groups) {
        add_group(places);
    }
}

// --force replaces any output, --redo-changed only one whose input or options changed.
Batch::Existing ShownBatch::existing_of(const PlannedFile& planned) const {
    return settings_.force ? Batch::Existing::Replace
           : planned.renew ? Batch::Existing::Renew
                           : Batch::Existing::Keep;
}

// The tracks that are leveled together, and their mix.
void ShownBatch::add_group(const std::vector<std::size_t>& places) {
    std::vector<Batch::GroupFile> group;
    for (const std::size_t place : places) {
        const PlannedFile& planned = plan_[place];
        places_.push_back(place);
        group.push_back(
            {planned.input, planned.output, existing_of(planned), planned.found, planned.mix});
    }
    batch_.add_group(group);
}

// Waits for the files that changed a moment ago and looks into them. Returns whether there is
// something left to do.
bool ShownBatch::settle() {
    std::vector<std::size_t> places;
    std::vector<std::string> inputs;
    for (std::size_t i = 0; i < plan_.size(); ++i) {
        if (plan_[i].settling) {
            places.push_back(i);
            inputs.push_back(plan_[i].input);
        }
    }
    if (places.empty() || signal() != 0 || enough_failures()) {
        return false;
    }
    screen_.line(fmt::format(
        "waiting up to a minute for {}{}, changed less than {:g} s ago", printable(inputs.front()),
        inputs.size() == 1 ? std::string() : fmt::format(" and {} more", inputs.size() - 1),
        settings_.settle_s));
    // True for a file that still changed at the end of the wait.
    const std::vector<bool> young =
        wait_until_settled(inputs, settings_.settle_s, [this] { return signal() != 0; });
    look_into(places, young);
    return signal() == 0;
}

// What is done for all other files before the work begins.
void ShownBatch::look_into(const std::vector<std::size_t>& places, const std::vector<bool>& young) {
    std::vector<PlannedFile> settled;
    for (std::size_t i = 0; i < places.size(); ++i) {
        PlannedFile& file = plan_[places[i]];
        file.settling = false;
        file.bytes = state_of(file.input).size;
        if (young[i]) {
            FileFacts facts = never_begun(file);
            facts.outcome = Outcome::Failed;
            facts.cause =
                "it is still being changed; give the same command again once it is complete";
            file.known = std::make_shared<FileFacts>(facts);
        }
        settled.push_back(file);
    }
    judge_outputs(settings_, settled);
    preflight(settings_, settled, Keep::Failures);
    for (std::size_t i = 0; i < places.size(); ++i) {
        plan_[places[i]] = std::move(settled[i]);
    }
}

// Once in a run: the kernel is the same for all files.
void ShownBatch::tell_missing_fences(const FileFacts& facts) {
    if (settings_.verbose && !facts.unfenced.empty() && !fences_told_) {
        fences_told_ = true;
        screen_.line(
            fmt::format("note: this kernel does not limit the {} of workers; a damaged file "
                        "that takes over a decoder could reach more than itself",
                        fmt::join(facts.unfenced, " and ")));
    }
}

bool ShownBatch::enough_failures() const {
    return settings_.max_failures != 0 && failures_ >= settings_.max_failures;
}

// The one place where a file ends: screen, JSON and results get the same facts.
void ShownBatch::end(std::size_t place, const FileFacts& facts) {
    files_[place].ended = true;
    finished_weight_ += files_[place].weight;
    ++finished_;
    failures_ += is_failure(facts.outcome) ? 1 : 0;
    FileFacts told = facts;
    add_note(plan_[place], told);
    // The JSON has a line for every file, also where the screen has one for a folder.
    if (shared_.report(told, screen_)) {
        lines_.write(told);
    } else {
        tell_finished(settings_, told, files_.size() == 1 ? Files::One : Files::Several, screen_,
                      lines_);
    }
    results_.add(place, std::move(told));
    plan_[place] = {};  // an archive has many files, and the results hold what is known of each
}

// Running files first, each with its own bar, and the whole batch below them.
void ShownBatch::draw() {
    std::vector<Screen::Bar> bars;
    // By bytes: a long file moves the bar as far as it takes time.
    double whole = finished_weight_;
    for (std::size_t place : running_) {
        const File& file = files_[place];
        whole += file.fraction * file.weight;
        bars.push_back({fs::path(plan_[place].input).filename().string(), file.fraction,
                        seconds_since(file.started)});
    }
    screen_.draw(bars, {fmt::format("{} of {} files{}", finished_, files_.size(),
                                    signal() ? ", stopping" : ""),
                        whole / all_weight_, seconds_since(begun_)});
}

}  // namespace quorvane
