#pragma once

#include <vector>

#include "Common/stream/stream.h"
#include "leveling/preparation/sections.h"
#include "leveling/publish/true_peak.h"

namespace quorvane {

constexpr int kBin_ms = 50;  // the engine's bins
constexpr double kBin_s = 0.05;

/** How far the wave between samples may rise over a ceiling that the samples keep. */
constexpr double kTruePeakRoom_db = 0.35;

/** What counts against a ceiling, linear: the samples or, less its room, the wave between them. */
double counted_peak(double sample_peak, double true_peak);

/** Measurements of each bin of 50 ms, from one pass over a file. Levels in dB, rounded to 1e-4. */
struct BinLevels {
    std::vector<float> speech_db;  // power from 150 to 5000 Hz, of both channels together
    std::vector<float> low_db;     // power below 120 Hz, likewise
    // K-weighted power (ITU-R BS.1770) behind the high-pass, of both channels together: what is
    // heard.
    std::vector<float> weighted_db;
    std::vector<float> louder_db;  // the same of the louder channel alone: the level is set by it
    // Of all channels behind the high-pass, linear: the samples' or as counted_peak() gives it.
    std::vector<float> peak;

    long long count() const { return static_cast<long long>(speech_db.size()); }
};

/** What is taken for a bin's peak. */
enum class PeakOf {
    kSamples,
    kWave,  // between the samples as well: half of the work of an analysis, for what has no limiter
};

/**
 * Measures the bins of a recording of one or two channels. Speech has most of its power, and nearly
 * all that tells words apart, between 150 and 5000 Hz (N. R. French and J. C. Steinberg, "Factors
 * governing the intelligibility of speech sounds", JASA 19 (1947)); rumble and hiss lie outside.
 */
class LevelAnalyser : public stream::Receiver {
  public:
    /** high_pass: what will take the rumble out of the recording. */
    LevelAnalyser(int channels,
                  int sample_rate_hz,
                  const std::vector<Section>& high_pass,
                  PeakOf peak_of = PeakOf::kWave);

    void process(double* samples, long long frames) override;
    void finish() override;

    /** Of a bin, as the engine counts. */
    long long bin_frames() const { return bin_frames_; }

    /** Whether every sample of a channel is the same. */
    bool is_constant() const;

    /** Of the whole recording, before the high-pass. */
    double peak() const { return peak_; }

    BinLevels& levels() { return levels_; }

  private:
    template <int Channels>
    void measure(const double* samples, const double* passed, long long frames);
    template <int Channels, class Pass>
    void measure_with(const double* samples, long long frames, const Pass& pass);
    void find_true_peak(const double* passed, long long frames);
    void finish_bin();

    int channels_;
    long long bin_frames_;
    PeakOf peak_of_;
    std::vector<PairFilter>
        filters_;  // two for speech, one for what lies below it, one for weighting
    FilterChain high_pass_;
    TruePeakFinder finder_;  // behind the high-pass
    double true_peak_ = 0;   // of the bin
    std::vector<double> passed_;
    std::vector<double> true_peaks_;  // of a block's frames
    Pair speech_ = {0, 0};
    Pair low_ = {0, 0};
    Pair weighted_ = {0, 0};
    Pair highest_ = {0, 0};
    Pair raw_highest_ = {0, 0};
    bool has_first_ = false;
    Pair first_ = {0, 0};
    Pair farthest_ = {0, 0};  // from the first sample, squared
    long long frames_in_bin_ = 0;
    double peak_ = 0;
    BinLevels levels_;
};

}  // namespace quorvane
