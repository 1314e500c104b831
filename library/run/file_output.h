#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "leveling/archive/record.h"
#include "leveling/storage/staged_output.h"
#include "library/run/work.h"

namespace quorvane {

/** Throws CallError where a file cannot be read. */
void require_readable(const std::string& input);

/** Throws CallError where an output is an input, or exists and is not to be replaced. */
void require_free(const Settings& settings, const std::string& input, const std::string& output);

/** The same, and where the output's name is not one of the input's format. */
void require_apart(const Settings& settings, const std::string& input, const std::string& output);

/** About the size of a file's decoded audio; more than may be in memory where it is unknown. */
std::uint64_t audio_bytes(const Settings& settings, const std::string& input);

/**
 * An output of the caller's: written under a hidden name in its folder, and renamed when it is
 * whole and on the disk. Throws CallError.
 */
class FileOutput {
  public:
    /** Errors name the output as the caller does. */
    FileOutput(const Workplace& place, const std::string& input, const std::string& output);

    /** Its final path, absolute. */
    const std::string& destination() const { return destination_; }

    /** The hidden file. */
    const std::string& part() const { return staged_->path(); }

    /** After the content: gives it the input's protection, and syncs it to the disk. */
    void complete();

    /** Gives it its name. */
    void commit(const Settings& settings);

    /** Takes it away again, unless it has replaced a file. */
    void withdraw() const;

  private:
    void with_errors(const std::function<void()>& work) const;

    const Workplace& place_;
    std::string input_;  // absolute
    std::string input_name_;
    std::string name_;
    std::string destination_;
    FileState before_;  // of the input
    bool replaced_ = true;
    std::unique_ptr<StagedOutput> staged_;
};

/** Levels a file of the caller's to a new file. Throws CallError and CancelledCall. */
Results level_to_file(const CallContext& call, const std::string& input, const std::string& output);

Results measure_of_file(const CallContext& call, const std::string& input);

}  // namespace quorvane
