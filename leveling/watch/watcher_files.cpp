#include <algorithm>
#include <ctime>
#include <filesystem>
#include <system_error>
#include <utility>

#include "leveling/watch/watcher.h"

/*
 * The way of one file: it arrives, is planned, goes into the batch and comes back, and is reported
 * or put off. All of it is called from the loop in watcher.cpp.
 */

namespace quorvane {
namespace fs = std::filesystem;

namespace {

// Files that arrived; they share one look at the records, and others wait for it.
constexpr std::size_t kLookedAtAtOnce = 500;
constexpr std::chrono::seconds kLookForRoomEvery{2};
constexpr std::chrono::seconds kTryWithoutRoomEvery{60};

Batch::Existing existing_of(const WatchRequest& request, const PlannedFile& file) {
    return request.options.replace ? Batch::Existing::Replace
           : file.renew            ? Batch::Existing::Renew
                                   : Batch::Existing::Keep;
}

}  // namespace

void Watcher::take_finished(std::size_t index, const FileFacts& facts) {
    const auto place = work_.find(index);
    const Begun begun = std::move(place->second);
    const PlannedFile& file = begun.file;
    work_.erase(place);
    running_ -= running_ > 0 ? 1 : 0;
    if (is_put_off(begun, facts)) {
        return;
    }
    if (without_room_ && facts.outcome != Outcome::Interrupted) {
        if (without_room_->input != file.input) {
            queue_.push_front(std::move(*without_room_));
        }
        without_room_.reset();
        observer_.resumed();
    }
    report(file, facts);
}

/** Whether the file failed for a reason that will pass, and is to be taken again. */
bool Watcher::is_put_off(const Begun& begun, const FileFacts& facts) {
    const PlannedFile& file = begun.file;
    if (facts.outcome != Outcome::Failed) {
        return false;
    }
    if (facts.no_room) {
        const auto now = Clock::now();
        next_try_ = now + kLookForRoomEvery;
        if (without_room_ && without_room_->input != file.input) {
            queue_.push_front(file);
        } else if (!without_room_) {
            without_room_ = file;
            latest_try_ = now + kTryWithoutRoomEvery;
            observer_.waiting(facts);
        }
        return true;
    }
    if (!watch_.is_there() || !output_mount_.is_mounted()) {
        after_return_.push_back(file.input);
        return true;
    }
    // A folder went and is back already, or the file is another one.
    if (begun.absences != absences_ || arrivals_.is_changed(file.input)) {
        arrivals_.again(file.input, Clock::now());
        return true;
    }
    // Replaced, and the new file is on its way already.
    const FileState now = state_of(file.input);
    return now.exists() && now != begun.input;
}

void Watcher::report(const PlannedFile& file, const FileFacts& facts) {
    metrics_.count(facts, std::time(nullptr));
    state_changed_ = true;
    const bool made = facts.outcome == Outcome::Leveled || facts.outcome == Outcome::Copied;
    if (made) {
        outputs_[file.output] = state_of(file.output);
    }
    if (facts.outcome != Outcome::UpToDate) {
        observer_.finished(facts);
    }
    if (done_program_ && (made || facts.outcome == Outcome::Failed)) {
        done_program_->add(facts);
    }
    arrivals_.finished(file.input, Clock::now());
}

void Watcher::take_arrivals() {
    const auto now = Clock::now();
    if (due_.empty()) {
        due_ = arrivals_.take_due(now, kLookedAtAtOnce);
        state_changed_ = state_changed_ || !due_.empty();
    }
    if (outputs_gone_ || watch_.source() == FolderWatch::Source::None) {
        return;
    }
    plan_some();
    if (!without_room_) {
        begin_some();
    } else if (work_.empty() && now >= next_try_) {
        next_try_ = now + kLookForRoomEvery;
        if (has_room() || now >= latest_try_) {
            latest_try_ = now + kTryWithoutRoomEvery;
            begin(*without_room_);
        }
    }
}

/** Looks at some of the files that arrived: which are to be leveled, and where to. */
void Watcher::plan_some() {
    std::vector<std::string> paths;
    for (const std::string& path : std::exchange(due_, {})) {
        // Found without a look at the records, which grow with each output.
        const auto own = outputs_.find(path);
        if (own == outputs_.end() || own->second != state_of(path)) {
            paths.push_back(path);
        }
    }
    if (paths.empty()) {
        return;
    }
    for (PlannedFile& file : request_.plan(paths)) {
        if (file.known) {
            report(file, *file.known);
        } else {
            queue_.push_back(std::move(file));
        }
    }
}

void Watcher::begin_some() {
    while (!queue_.empty() && work_.size() < request_.jobs) {
        begin(queue_.front());
        queue_.pop_front();
    }
}

void Watcher::begin(const PlannedFile& file) {
    tick();
    const FileState input = state_of(file.input);
    work_[batch_.add(file.input, file.output, existing_of(request_, file), file.found)] = {
        file, input, absences_};
}

/** Whether the file that a full disk stopped may go this time. */
bool Watcher::has_room() const {
    // Temporary files and the output, in sizes of the input, and something for the small files.
    constexpr double kSizes = 3;
    constexpr double kMore = 1 << 20;
    const double needed = kSizes * static_cast<double>(without_room_->bytes) + kMore;
    std::error_code error;
    return free_bytes(without_room_->output) >= needed &&
           free_bytes(fs::temp_directory_path(error).string()) >= needed;
}

}  // namespace quorvane
