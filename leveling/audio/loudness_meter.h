#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "leveling/audio/k_weighting.h"

/*
 * Loudness after ITU-R BS.1770-4 and EBU R128 from the energy of weighted samples in stretches of
 * 100 ms. libebur128 is right as well, and the tests hold this against it, but it takes most of the
 * time of leveling a file: it filters one channel after the other with a recursion of the fourth
 * order, and sums each window of a curve from its start. Here two channels stand side by side, two
 * recursions of the second order overlap, and no sample is squared twice. A recursion waits for
 * itself all the same, so that a long run of samples is filtered as two, whose halves stand in one
 * vector.
 */

namespace quorvane {

/**
 * Sorts the energies of a recording's frames into stretches of 100 ms and between cuts. Frames come
 * in runs that end at every border of either.
 */
class EnergyLedger {
  public:
    /** cuts, ascending, each once, outlive the ledger. begin: the frame that is added first. */
    EnergyLedger(std::int64_t stretch_frames,
                 const std::vector<std::int64_t>& cuts,
                 std::int64_t begin);

    /** The frames up to the next border: the most that may be added at once. */
    std::int64_t frames_to_border() const;

    void add(double energy, std::int64_t frames);

    /** The entries of a ledger that began where this one ends. */
    void append(const EnergyLedger& next);

    /** Of each whole stretch. */
    const std::vector<double>& stretches() const { return stretches_; }

    /** The first one lies before the first cut. */
    const std::vector<double>& between_cuts() const { return between_cuts_; }

    std::int64_t end() const { return end_; }

  private:
    std::size_t next_cut() const { return cuts_before_ + between_cuts_.size() - 1; }

    std::int64_t stretch_frames_;
    const std::vector<std::int64_t>* cuts_;
    std::int64_t end_;
    std::size_t cuts_before_;  // at the first frame or before it
    std::vector<double> between_cuts_;
    double stretch_ = 0;  // the one under way
    std::vector<double> stretches_;
};

/**
 * Integrated loudness and loudness range of a recording, and its loudness in windows that are known
 * before. Channels have the weights that BS.1770-4 gives to their places; where none are given,
 * left, right, centre, LFE (none) and the two surrounds, and further ones have none.
 */
class LoudnessMeter {
  public:
    /**
     * cuts: the frames at which the windows begin or end, ascending, each once. begin: the frame of
     * the recording that is added first. weights: of the channels, see loudness_weights().
     */
    LoudnessMeter(int channels,
                  int sample_rate_hz,
                  std::vector<std::int64_t> cuts = {},
                  std::int64_t begin = 0,
                  const std::vector<double>& weights = {});

    /**
     * Frames before the first, which leave the filters as the recording up to there would have:
     * what they keep of anything after a quarter of a second is below the rounding.
     */
    template <class Sample>
    void settle(const Sample* samples, std::size_t frames);

    /**
     * The next frames, interleaved, full scale 1.0. Runs of floats that last seconds take half as
     * long as many short ones.
     */
    template <class Sample>
    void add(const Sample* samples, std::size_t frames);

    /** What a meter of the same recording and cuts has measured that began where this one ends. */
    void append(const LoudnessMeter& next);

    /**
     * LUFS: the mean of the blocks of 400 ms, one each 100 ms, that are neither below -70 LUFS nor
     * more than 10 LU below the mean of those which are not. Minus infinity where there is none.
     */
    double integrated_lufs() const;

    /**
     * LU, after EBU Tech 3342: from the 10th to the 95th percentile of the windows of 3 s, one each
     * second, that are neither below -70 LUFS nor more than 20 LU below their mean.
     */
    double range_lu() const;

    /** LUFS: the greatest of all blocks of 400 ms. Minus infinity for silence. */
    double greatest_momentary_lufs() const;

    /** The mean power of each whole stretch of 100 ms, K-weighted. */
    std::vector<double> stretch_powers() const { return powers(1, 1); }

    /** Frames of a stretch of 100 ms. */
    static std::int64_t stretch_frames(int sample_rate_hz);

    /** Frames of a block of 400 ms, which is a whole number of stretches of 100 ms. */
    static std::int64_t block_frames(int sample_rate_hz);

    /**
     * LUFS of the frames from begin to end, which are cuts that have been reached, without gate;
     * what lies before frame 0 is silence. Minus infinity for silence.
     */
    double window_lufs(std::int64_t begin, std::int64_t end) const;

  private:
    std::vector<double> powers(std::size_t stretches, std::size_t step) const;
    std::size_t add_halves(const float* samples, std::size_t frames);

    std::size_t channels_;
    std::size_t settle_frames_;
    KWeighting weighting_;
    std::int64_t stretch_frames_;
    std::shared_ptr<const std::vector<std::int64_t>> cuts_;
    EnergyLedger ledger_;
};

}  // namespace quorvane
