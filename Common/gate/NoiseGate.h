#pragma once

#include <boost/scoped_array.hpp>
#include <vector>

#include "Common/gate/CommandLine.h"
#include "Common/gate/LevelMeter.h"
#include "Common/gate/pair_meter.h"
#include "Common/stream/stream.h"

namespace gate {

constexpr int kBlockSamples = 8192;  // what is gated at a time, both channels together

/** The opening and closing states are the ramps; the holding one is as loud as the open one. */
enum eStateType { kOpen, kClosed, kOpening, kClosing, kHolding };

/**
 * A noise gate over a recording of one or two channels, each gated by itself. The gate decides on
 * two running energies, of the sample that it is at and of the one that lies ahead by the
 * anticipation: it opens before speech sets in, and starts to close after speech has ended and the
 * hold time has passed.
 *
 * What lies ahead is kept in a delay line that is addressed by frames from the recording's start.
 * The recording is gated in blocks of 8192 samples, and in the last of them the line runs out:
 * where the sample ahead lies beyond the end, the one a block before it is taken in its place (or
 * silence, in the first block and where the source says so). Where a block has no sample at all
 * ahead of it, the current energy replaces the one ahead. These rules keep the bits of an earlier
 * gate, which had two readers on one file and two buffers.
 */
class CNoiseGate : public stream::Stage {
  public:
    /**
     * args must be converted, args.anticipate_samples not above the input's frames. ahead: null, or
     * a second reader of the input, args.anticipate_samples frames ahead of it, which replaces the
     * delay line.
     */
    CNoiseGate(const GateArgs& args,
               stream::Source& input,
               stream::Receiver& output,
               stream::Source* ahead = nullptr);

    /**
     * Gates the whole input and shows the step's progress. Returns 0. Throws ss_sf_unexpected_eof
     * for an input shorter than the meters, and what source and receiver throw.
     */
    int exec();
    void exec_mono();
    void exec_stereo();

    /** For the loop that exec runs. */
    void process(double* samples, long long frames) override;
    void finish() override;

    /** Fill one meter, or those of the two channels, with the start of the recording. */
    void initializeMeter(CLevelMeter& meter);
    void initializeMeters(CLevelMeter& left,
                          CLevelMeter& right,
                          double& left_energy,
                          double& right_energy);

    /** counter: samples that the hold has lasted, from 0 on. */
    static void startHolding(eStateType& state, int& counter);

    static void startOpening(eStateType& state) { state = kOpening; }

    static void startClosing(eStateType& state) { state = kClosing; }

  private:
    struct Gain {
        eStateType state;
        double value;
        int held;  // samples since the hold began
    };

    void gate_input(void (CNoiseGate::*start)());
    void start_mono();
    void start_stereo();
    const double* first_frames() const;
    void start_gain(const CLevelMeter& first);
    void gate_block(long long frames);
    const double* look_ahead(long long frames, long long& frames_ahead);
    void forget_passed_frames();
    template <bool kHasAhead>
    void gate_mono(const double* samples, const double* ahead, long long frames);
    template <bool kHasAhead>
    void gate_stereo(const double* samples, const double* ahead, long long frames);
    double least_to_rest(const Gain& gain) const;
    double most_to_rest(const Gain& gain) const;
    void step(Gain& gain, double current_energy, double ahead_energy) const;
    void open_further(Gain& gain) const;
    void close_further(Gain& gain) const;

    /** The line's samples from a frame on. */
    const double* at(long long frame) const;

    const GateArgs args_;
    stream::Source& input_;
    stream::Source* ahead_;
    int channel_count_;
    long long block_frames_;
    double attack_step_;
    double release_step_;
    void (CNoiseGate::*start_)() = nullptr;
    std::vector<PairMeter> meters_;  // empty until the first frames are there
    std::vector<Gain> gains_;        // one a channel
    std::vector<double> line_;
    long long line_start_ = 0;  // frame of the line's first sample
    long long received_ = 0;    // frames; the line ends there
    long long gated_ = 0;       // frames; a multiple of the block's until the end
    boost::scoped_array<double> block_;
    boost::scoped_array<double> ahead_block_;
};

}  // namespace gate
