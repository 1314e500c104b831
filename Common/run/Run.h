#pragma once

#include <sndfile.h>

#include <string>

#include "Common/CommandLine.h"
#include "Common/outcome.h"
#include "Common/result.h"
#include "Common/run/run_files.h"
#include "Common/run/run_settings.h"

namespace level_engine {

class OutcomeRecord;

/**
 * One run over one file: checks the input and runs the ten steps in their order, each on the
 * file that the one before wrote, and hands the last file to the platform.
 *
 * Three inputs are copied instead: shorter than 0.05 s, constant, and one on which the loud-peak
 * step fails, usually since nothing is above its noise floor. Any other step that fails ends the
 * run, and then the intermediate files stay; otherwise each is removed when no later step reads it.
 * The OutcomeRecord receives the result and the defects that a caller may want to refuse.
 */
class Run {
  public:
    /** All three must live as long as the run. */
    Run(const CCLArgs& args, const RunSettings& settings, OutcomeRecord& record);

    Run(const Run&) = delete;
    Run& operator=(const Run&) = delete;

    /** Leaves the names of the intermediate files with the record. */
    ~Run();

    /**
     * Returns a Result. Rethrows ss_cancel_exception and exceptions that are not std::exception;
     * reports every other exception.
     */
    int go();

  private:
    struct EndOfRun;

    void look_at_input();
    void prepare_intermediates();

    // The steps 1 to 10.
    void filter();
    void gate_noise();
    void reduce_peaks();
    void reduce_loud_passages();
    void measure_levels();
    void find_segments();
    void calculate_segment_gains();
    void smooth_gain_curve();
    void apply_gain_curve();
    void normalize_and_deliver();

    int normalize_into(const std::string& from, const std::string& to);
    void require_step(int mark, bool success);
    [[noreturn]] static void fail(int mark, const std::string& message);
    [[noreturn]] void copy_input(LevelOutcomeKind kind, const std::string& reason);
    [[noreturn]] void copy_input_after_failure();
    [[noreturn]] void make_copy();
    void deliver(const std::string& final_file);
    void succeed(LevelOutcomeKind kind, const std::string& reason = "");

    std::string begin_step(int step, Intermediate output);

    // The messages' source and marks are those of the file that this one came from: see log_msg.
    static constexpr const char* kMessageSource = "Common/level";

    const CCLArgs& args_;
    const RunSettings& settings_;
    OutcomeRecord& record_;
    RunFiles files_;
    SF_INFO info_{};
    std::string conditioned_;
    double filtered_level_db_ = 0.0;
    int step_ = 0;  // the one under way
};

}  // namespace level_engine

using level_engine::OutcomeRecord;
using level_engine::Run;
