#include "leveling/worker/delivery.h"

#include <fmt/format.h>
#include <sys/stat.h>

#include <filesystem>
#include <system_error>

#include "leveling/archive/up_to_date.h"
#include "leveling/facts/file_error.h"

/*
 * The order of the last steps keeps two promises. An output appears whole and with its protection:
 * until the worker has ended, the part can be read by its owner alone, then it gets the input's
 * mode, group, access list and attributes, is synced, and only then gets its name. And no output
 * lacks a record: the record is written first, and proves nothing until a file with
 * the recorded state has the name.
 *
 * The worker has ended when the parent checks what it left, so the file cannot change after the
 * check.
 */

namespace quorvane {
namespace fs = std::filesystem;

namespace {

std::string key_of(const JobOptions& options) {
    return options_key(options.tuning, options.measure, options.audio_stream, options.audio_codec,
                       options.destination, options.group, options.channels);
}

Arithmetic arithmetic_for(const JobOptions& options) {
    return arithmetic_of(options.plain ? Way::Plain : Way::Prepared, options.destination);
}

/** Throws FileError unless the part is the file that the worker reported. */
void require_reported(const StagedOutput& part, const WorkResult& result) {
    struct stat status {};

    if (!part.is_in_place() || fstat(part.descriptor(), &status) != 0) {
        throw FileError("the unfinished output was removed or replaced while it was written");
    }
    if (status.st_size == 0 || status.st_size != result.output_bytes) {
        throw FileError(
            fmt::format("its worker process reported an output of {} bytes, but {} bytes are there",
                        result.output_bytes, status.st_size));
    }
}

}  // namespace

Delivery::Delivery(const Job& job, const OutputPlace& place)
    : input_(job.input), options_(job.options), place_(place) {}

Delivery::Begun Delivery::begin() {
    if (place_.output.empty()) {
        return Begun::Ready;
    }
    if (!claim_.take(place_.output, place_.new_folder, WhenTaken::Leave)) {
        return Begun::Taken;
    }
    existing_ = options_.replace || options_.redo_changed ? Existing::Replace : Existing::Keep;
    if (!options_.replace && state_of(place_.output) != place_.found && was_made_meanwhile()) {
        claim_.release();
        return Begun::Done;
    }
    input_state_ = state_of(input_);
    staged_.emplace(place_.output);
    staged_->keep_private();
    return Begun::Ready;
}

// With the claim in hand it is certain whether another process has made the output meanwhile.
bool Delivery::was_made_meanwhile() {
    UpToDate up_to_date(key_of(options_), Proof::SizeAndTime, arithmetic_for(options_));
    const Judgement judgement = up_to_date.judge_new(input_, place_.output);
    const bool renew = judgement.state == OutputState::Outdated ||
                       (options_.redo_changed && is_redone(judgement.state));
    existing_ = renew ? Existing::Replace : Existing::Keep;
    if (judgement.state != OutputState::UpToDate) {
        return false;
    }
    facts_ = facts_of(judgement, input_, place_.output);
    return true;
}

DoneRecord Delivery::record_of(const WorkResult& result,
                               const std::vector<InputRecord>& others) const {
    DoneRecord record;
    record.output = fs::path(place_.output).filename().string();
    record.output_hash = result.output_hash;
    record.input = input_;
    record.input_state = input_state_;
    record.input_hash = result.input_hash;
    record.others = others;
    record.options = key_of(options_);
    record.arithmetic = arithmetic_for(options_);
    record.facts = result.facts;
    record.facts.elapsed_s = 0;  // it and the fences belong to the run, not to the output
    record.facts.unfenced.clear();
    return record;
}

void Delivery::require_unchanged() const {
    if (state_of(input_) != input_state_) {
        throw FileError(kChangedWhileRead);
    }
}

void Delivery::deliver(const WorkResult& result, const std::vector<InputRecord>& others) {
    StagedOutput& staged = *staged_;
    require_reported(staged, result);
    staged.take_protection_of(input_);
    if (options_.keep_mtime) {
        staged.take_time_of(input_);
    }
    DoneRecord record = record_of(result, others);
    staged.sync();
    require_unchanged();
    try {
        record.output_state = state_of(staged.path());
        claim_.record(to_line(record));  // before the output takes its name: see record.cpp
        staged.commit(existing_);
    } catch (const std::system_error& error) {
        if (error.code() != std::errc::file_exists) {
            throw;
        }
        throw FileError("the output was created by another program in the meantime and was kept");
    }
}

}  // namespace quorvane
