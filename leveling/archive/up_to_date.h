#pragma once

#include <memory>
#include <string>
#include <vector>

#include "leveling/archive/record.h"

namespace quorvane {

/** How an output that was planned stands to its input. */
enum class OutputState {
    Missing,   // to be made
    UpToDate,  // there, whole, and made from this input with these options and this arithmetic
    Outdated,  // ours and whole, but made from a smaller state of this very input, as of one that
               // was still being copied, or for no destination or another one than is asked for
    Changed,   // ours and whole, but the input or the options changed since
    Earlier,   // made from this input with these options, by an earlier version of the arithmetic
    Damaged,   // of Proof::Content: the output's or the input's content is not the recorded one
    NotOurs    // exists, but no record matches it
};

struct Judgement {
    OutputState state = OutputState::Missing;
    std::string cause;       // of Changed, Earlier, Damaged and NotOurs, for the user
    FileState output_state;  // as it was found
    FileFacts facts;         // of UpToDate: what was found out when it was made, without curves
    // Of UpToDate: the hashes of all inputs that it was made from, its own and those of the other
    // tracks of its conversation, sorted.
    std::vector<std::string> input_hashes = {};
};

/** The facts of a file whose output is up to date. */
FileFacts facts_of(const Judgement& judgement, const std::string& input, const std::string& output);

/** Whether --redo-changed replaces such an output. */
bool is_redone(OutputState state);

/** What it takes to believe that a file is as it was recorded. */
enum class Proof {
    SizeAndTime,  // or its content, where only the time differs
    Content
};

/**
 * Judges outputs by the records of their folders. A file whose size and modification time are as
 * recorded is not read, since ten thousand are checked in a second; a caller who fears that a disk
 * changed it in silence passes Proof::Content. Keeps the book of the last folder: ask in the
 * order of the folders.
 */
class UpToDate {
  public:
    /** options: options_key() of this run. arithmetic: that of the outputs it would make. */
    explicit UpToDate(std::string options,
                      Proof proof = Proof::SizeAndTime,
                      Arithmetic arithmetic = arithmetic_of(Way::Prepared))
        : options_(std::move(options)), proof_(proof), arithmetic_(std::move(arithmetic)) {}

    Judgement judge(const std::string& input, const std::string& output);

    /** The same of an output that was just made by another process: its record is a late one. */
    Judgement judge_new(const std::string& input, const std::string& output);

  private:
    Judgement judge_record(const DoneRecord& record, const std::string& input) const;

    /** Of an output that no record fits. */
    Judgement judge_unknown(const std::string& output,
                            const FileState& state,
                            const std::vector<DoneRecord>& records) const;

    std::string options_;
    Proof proof_;
    Arithmetic arithmetic_;
    std::string book_path_;
    std::unique_ptr<RecordBook> book_;
};

}  // namespace quorvane
