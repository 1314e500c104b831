#pragma once

#include <sndfile.h>

#include <functional>
#include <initializer_list>
#include <string>

#include "Common/CommandLine.h"
#include "Common/outcome.h"
#include "Common/run/intermediates.h"
#include "Common/run/output_meter.h"
#include "Common/run/temp_files.h"

/** What levelMain returns. */
enum Result { kSuccess = 0, kFailure = 1, kCancelled = 3 };

/**
 * One run over one file: looks at the input, lets the ten steps work in their order, each on the
 * file that the one before wrote, and hands the last file to the platform.
 *
 * Three inputs are copied instead: shorter than 0.05 s, constant, and one on which the loud-peak
 * step fails, usually since nothing is above its noise floor. Any other step that fails ends the
 * run, and then the intermediate files stay; otherwise each is removed when no later step reads it.
 * The result, and what a caller may not want to accept of it, goes to the OutcomeRecord.
 */
class Run {
  public:
    explicit Run(const CCLArgs& args) : args_(args) {}

    Run(const Run&) = delete;
    Run& operator=(const Run&) = delete;
    ~Run();

    /**
     * Returns a Result. ss_cancel_exception and what is no std::exception pass on; every other
     * exception is reported.
     */
    int go();

    /** With true, all later runs of the process leave their intermediate files where they are. */
    static void keep_intermediates(bool keep);

    /** With true, all later runs that keep none give intermediate audio no name on the disk. */
    static void hide_intermediates(bool hide);

    /** What levelSetFinalFile sets: the descriptor for the finished audio, or -1. */
    static void write_final_into(std::function<int()> open);

    /** What levelSetCopy sets: copies an input to the output and returns 0, or 1. */
    using Copy = std::function<int(const std::string& from, const std::string& to)>;
    static void copy_by(Copy copy);

    /** With true, all later runs lower a target level that the recording has no room for. */
    static void lower_target(bool lower);

    /** What levelEndFlatRamps sets. */
    static void end_flat_ramps(bool end);

    /** Removes what the last run left of its intermediate files. */
    static void discard_intermediates();

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

    int lend_final_file(const std::string& final_file);
    int normalize_into(const std::string& from, const std::string& to);
    void require_step(int mark, bool success);
    [[noreturn]] static void fail(int mark, const std::string& message);
    [[noreturn]] void copy_input(LevelOutcomeKind kind, const std::string& reason);
    [[noreturn]] void copy_input_after_failure();
    [[noreturn]] void make_copy();
    void succeed(LevelOutcomeKind kind, const std::string& reason = "");

    std::string path(Intermediate file) const { return intermediates_.path(file); }

    std::string begin_step(int step, Intermediate output);
    std::string add_output(Intermediate output);
    void measure_as_written(Intermediate output);
    void done_with(std::initializer_list<std::string> paths);

    const CCLArgs& args_;
    Intermediates intermediates_;
    TempFileList temp_files_;
    SF_INFO info_{};
    OutputMeter output_meter_;
    std::string conditioned_;
    double filtered_level_db_ = 0.0;
    int step_ = 0;  // the one under way
};
