#pragma once

#include <functional>
#include <string>
#include <vector>

#include "leveling/preparation/sections.h"
#include "leveling/preparation/sound_files.h"
#include "leveling/preparation/timeline.h"

namespace quorvane {

/** What becomes the output: the leveled copy, and between its parts the recording itself. */
struct Rendering {
    std::string recording;
    std::string leveled;              // what the engine made of the copy
    std::vector<double> pause_gains;  // linear, one for each stretch that was left out
    std::vector<Section> high_pass;   // what the engine and the copy took out of the speech
    std::vector<float> trim_db;       // what each bin of the leveled copy gets; none: nothing
    long long bin_frames = 0;
};

/**
 * Puts a recording together again. A stretch that was left out goes through the high-pass and takes
 * its gain; over the last 0.3 s before it and the first 0.3 s behind it, where both are there, it
 * fades from the leveled audio and back. Both are the same sound, so the fades are linear.
 */
void render(const Rendering& rendering,
            const Timeline& timeline,
            OutputFile& out,
            const std::function<void(double)>& progress);

/**
 * Reads a recording through a high-pass, times a gain that moves in straight lines between its
 * values: one in dB for the middle of each bin.
 */
class CurveReader {
  public:
    /** The curve has at least one value. Throws std::runtime_error with the cause. */
    CurveReader(const std::string& recording,
                const std::vector<Section>& high_pass,
                std::vector<float> curve_db,
                long long bin_frames);

    /** Reads half a bin at first, then bins. Returns the frames that are there now; 0 at the end.
     */
    long long next();

    /** Interleaved. */
    const double* result() const { return result_.data(); }

    /** The same frames as they are in the recording. */
    const double* original() const { return original_.data(); }

    /** Takes what has been read away, and leaves these for the next reading. */
    void swap_buffers(std::vector<double>& result, std::vector<double>& original);

  private:
    InputFile in_;
    FilterChain filter_;
    std::vector<float> curve_db_;
    long long bin_frames_;
    std::vector<double> original_;
    std::vector<double> result_;
    double gain_;
    std::size_t bin_ = 0;
};

/** The whole recording as a CurveReader gives it. */
void render_with_curve(const std::string& recording,
                       const std::vector<Section>& high_pass,
                       const std::vector<float>& curve_db,
                       long long bin_frames,
                       OutputFile& out,
                       const std::function<void(double)>& progress);

/** The whole recording times one gain. */
void render_with_one_gain(const std::string& recording,
                          double gain,
                          OutputFile& out,
                          const std::function<void(double)>& progress);

}  // namespace quorvane
