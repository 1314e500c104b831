#include "leveling/archive/up_to_date.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <optional>
#include <system_error>

#include "leveling/archive/content_hash.h"

namespace quorvane {
namespace {

/** Whether a file is still what was recorded; its bytes are read at most once, and only if need
 * be. */
class Comparison {
  public:
    Comparison(const std::string& path, Proof proof)
        : path_(path), proof_(proof), state_(state_of(path)) {}

    const FileState& state() const { return state_; }

    bool is(const FileState& recorded, const std::string& recorded_hash) {
        if (state_ == recorded && proof_ == Proof::SizeAndTime) {
            return true;
        }
        if (state_.size != recorded.size) {
            return false;
        }
        if (!hash_) {
            try {
                hash_ = content_hash(path_);
            } catch (const std::system_error&) {
                hash_ = "";  // cannot be read: equals no recorded hash
            }
        }
        return *hash_ == recorded_hash;
    }

  private:
    std::string path_;
    Proof proof_;
    FileState state_;
    std::optional<std::string> hash_;
};

}  // namespace

FileFacts facts_of(const Judgement& judgement,
                   const std::string& input,
                   const std::string& output) {
    FileFacts facts = judgement.facts;
    facts.input = input;
    facts.output = output;
    facts.outcome = Outcome::UpToDate;
    return facts;
}

/** States whose output --redo-changed replaces. */
bool is_redone(OutputState state) {
    return state == OutputState::Changed || state == OutputState::Earlier;
}

Judgement UpToDate::judge(const std::string& input, const std::string& output) {
    Judgement judgement;
    Comparison there(output, proof_);
    judgement.output_state = there.state();
    if (!there.state().exists()) {
        return judgement;
    }
    const std::string path = record_path(output);
    if (path != book_path_) {
        book_ = std::make_unique<RecordBook>(path);
        book_path_ = path;
    }
    const auto records = book_->find(std::filesystem::path(output).filename().string());
    for (const DoneRecord& record : records) {
        if (there.is(record.output_state, record.output_hash)) {
            judgement = judge_record(record, input);
            judgement.output_state = there.state();
            return judgement;
        }
    }
    return judge_unknown(output, there.state(), records);
}

// Such an output is kept. Only a comparison of contents can call it damaged.
Judgement UpToDate::judge_unknown(const std::string& output,
                                  const FileState& state,
                                  const std::vector<DoneRecord>& records) const {
    Judgement judgement;
    judgement.output_state = state;
    judgement.state = OutputState::NotOurs;
    if (records.empty()) {
        judgement.cause = fmt::format(
            "{} exists, and no record says that it was made from this input "
            "(--force replaces it)",
            output);
    } else if (proof_ == Proof::SizeAndTime) {
        judgement.cause = fmt::format(
            "{} exists, but was changed after it was leveled (--force replaces it)", output);
    } else {
        const bool silently =
            std::any_of(records.begin(), records.end(),
                        [&](const DoneRecord& record) { return record.output_state == state; });
        judgement.state = OutputState::Damaged;
        judgement.cause = fmt::format(
            silently ? "the content of {} is not what was recorded, though its size and time are; "
                       "the disk may lose data (--force levels it again)"
                     : "{} was damaged or edited after it was leveled: its content is not what was "
                       "recorded (--force levels it again)",
            output);
    }
    return judgement;
}

// Two runs on one folder meet at every file; each time the whole book would be read.
Judgement UpToDate::judge_new(const std::string& input, const std::string& output) {
    book_path_ = record_path(output);
    book_ = std::make_unique<RecordBook>(book_path_, RecordBook::Part::End);
    const Judgement judgement = judge(input, output);
    book_path_.clear();
    return judgement.state == OutputState::NotOurs ? judge(input, output) : judgement;
}

Judgement UpToDate::judge_record(const DoneRecord& record, const std::string& input) const {
    Judgement judgement;
    judgement.state = OutputState::Changed;
    constexpr const char* kRedo = "(--redo-changed levels it again)";
    Comparison source(input, proof_);
    const std::string destination = destination_in(options_);
    const bool same_way = record.arithmetic.way.empty() || record.arithmetic.way == arithmetic_.way;
    if (!source.is(record.input_state, record.input_hash)) {
        if (source.state() == record.input_state) {
            judgement.state = OutputState::Damaged;
            judgement.cause =
                "the content of the input is not what was recorded, though its size and "
                "time are; the disk may lose data (its output is whole)";
        } else if (is_same_path(record.input, input)) {
            const bool grown = source.state().size > record.input_state.size;
            judgement.state = grown ? OutputState::Outdated : OutputState::Changed;
            judgement.cause = fmt::format("the input changed since it was leveled {}", kRedo);
        } else if (state_of(record.input).exists()) {
            judgement.state = OutputState::NotOurs;
            judgement.cause = fmt::format(
                "its output has the same name as the one leveled from {}; --keep-top or another "
                "--output-dir keeps them apart",
                record.input);
        } else {  // the archive has moved
            judgement.cause = fmt::format("the input changed since it was leveled {}", kRedo);
        }
    } else if (!destination.empty() && destination_in(record.options) != destination) {
        judgement.state = OutputState::Outdated;
    } else if (record.options != options_ || !same_way) {
        judgement.cause = fmt::format("it was leveled with other options {}", kRedo);
    } else if (record.arithmetic.version < arithmetic_.version) {
        judgement.state = OutputState::Earlier;
        judgement.cause =
            "it was leveled by an earlier version of the arithmetic "
            "(--redo-changed levels it again)";
    } else if (record.arithmetic.version > arithmetic_.version) {
        judgement.cause =
            "it was leveled by a later version of the program "
            "(--redo-changed levels it with this one)";
    } else {
        judgement.state = OutputState::UpToDate;
        judgement.facts = record.facts;
        judgement.input_hashes = {record.input_hash};
        for (const InputRecord& other : record.others) {
            judgement.input_hashes.push_back(other.hash);
        }
        std::sort(judgement.input_hashes.begin(), judgement.input_hashes.end());
    }
    return judgement;
}

}  // namespace quorvane
