#pragma once

#include <exception>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "leveling/facts/file_error.h"
#include "leveling/worker/job.h"

namespace quorvane {

/**
 * Does all the work on one file, in the order of a list of stages, up to the complete content of
 * the output in the job's part. A failure is an outcome; nothing is thrown. progress is called with
 * 0 to 1.
 */
WorkResult work_on(const Job& job, const std::function<void(double)>& progress);

/**
 * The same of the tracks of one conversation, and of their mix where the last job is for one: one
 * result for each job. Where one of them fails, all do, with the cause of that one.
 */
std::vector<WorkResult> work_on_group(const std::vector<Job>& jobs,
                                      const std::function<void(double)>& progress);

/**
 * The same for a program that does the work in its own process: what goes wrong is thrown, and an
 * exception that progress throws ends the work. One that does not derive from std::exception passes
 * through whatever is under way.
 */
WorkResult work_on_here(const Job& job, const std::function<void(double)>& progress);

/** What went wrong with one file of a group. */
class TrackError : public std::runtime_error {
  public:
    /** input: of the track; of a mix its output. error: the one that is being handled. */
    TrackError(const std::string& input, const std::exception& error)
        : std::runtime_error(cause_of(error)), input_(input), cause_(std::current_exception()) {}

    TrackError(const std::string& input, const FileError& error)
        : std::runtime_error(error.what()), input_(input), cause_(std::make_exception_ptr(error)) {}

    const std::string& input() const { return input_; }

    [[noreturn]] void rethrow_cause() const { std::rethrow_exception(cause_); }

  private:
    std::string input_;
    std::exception_ptr cause_;
};

/** As work_on_here() for work_on_group(). What is wrong with one of the files is a TrackError. */
std::vector<WorkResult> work_on_group_here(const std::vector<Job>& jobs,
                                           const std::function<void(double)>& progress);

}  // namespace quorvane
