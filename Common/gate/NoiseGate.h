#pragma once

#include <boost/scoped_array.hpp>
#include <string>
#include <vector>

#include "Common/audio/sound_handle.h"
#include "Common/gate/CommandLine.h"
#include "Common/gate/LevelMeter.h"

namespace gate {

enum eStateType { kOpen, kClosed, kOpening, kClosing, kHolding };

/**
 * A noise gate over one file of one or two channels, each gated by itself. A second handle on the
 * input, ahead by the anticipation, tells what is coming: the gate opens before speech sets in and
 * starts to close after it has ended and the hold time has passed.
 */
class CNoiseGate {
  public:
    /** args must be converted; ahead must stand args.anticipate_samples frames after current. */
    CNoiseGate(const GateArgs& args,
               const SoundHandle& current,
               const SoundHandle& ahead,
               const SoundHandle& output,
               const SF_INFO& info);

    /**
     * Gates the whole file. Returns 0. Throws ss_sf_unexpected_eof for a file shorter than the
     * meters, ss_sf_seek_error, ss_sf_write_error.
     */
    int exec();

  private:
    /** One channel's meters and gain. */
    struct Channel {
        CLevelMeter current;
        CLevelMeter ahead;
        eStateType state;
        double gain;
        int held;  // samples since the hold began
    };

    void exec_mono();
    void exec_stereo();
    void initializeMeter(CLevelMeter& meter);
    void initializeMeters(CLevelMeter& left,
                          CLevelMeter& right,
                          double& left_energy,
                          double& right_energy);
    void add_channel(const CLevelMeter& current, const CLevelMeter& ahead);
    long long read_start(double* samples, long long count);

    void gate_file();
    void gate_channel(Channel& shared,
                      double* samples,
                      const double* ahead,
                      long long count,
                      bool has_ahead) const;
    void step(Channel& channel, double current_energy, double ahead_energy) const;

    static void startHolding(eStateType& state, int& counter);

    static void startOpening(eStateType& state) { state = kOpening; }

    static void startClosing(eStateType& state) { state = kClosing; }

    const GateArgs args_;
    SoundHandle current_;
    SoundHandle ahead_;
    SoundHandle output_;
    SF_INFO info_;
    double attack_step_;
    double release_step_;
    std::vector<Channel> channels_;
    boost::scoped_array<double> current_block_;
    boost::scoped_array<double> ahead_block_;
};

}  // namespace gate
