#include "Common/gate/NoiseGate.h"

#include <cstddef>

#include "Common/audio/finite.h"
#include "Common/gate/gate.h"
#include "Common/reporting/progress.h"
#include "Common/ss_util.h"
#include "Common/units.h"

namespace gate {

namespace {
constexpr int kBlockSamples = 8192;
constexpr const char* kSource = "Common/gate/gate";
}  // namespace

CNoiseGate::CNoiseGate(const GateArgs& args,
                       const SoundHandle& current,
                       const SoundHandle& ahead,
                       const SoundHandle& output,
                       const SF_INFO& info)
    : args_(args),
      current_(current),
      ahead_(ahead),
      output_(output),
      info_(info),
      attack_step_((args.open_gain - args.closed_gain) / args.attack_samples),
      release_step_((args.open_gain - args.closed_gain) / args.release_samples) {
    allocate(current_block_, kBlockSamples, "current block", kSource);
    allocate(ahead_block_, kBlockSamples, "look-ahead block", kSource);
}

int CNoiseGate::exec() {
    if (info_.channels == 1) {
        exec_mono();
    } else {
        exec_stereo();
    }
    return 0;
}

void CNoiseGate::exec_mono() {
    CLevelMeter current(args_.meter_samples);
    CLevelMeter ahead(args_.meter_samples);
    initializeMeter(current);
    initializeMeter(ahead);
    add_channel(current, ahead);
    gate_file();
}

void CNoiseGate::exec_stereo() {
    CLevelMeter left(args_.meter_samples);
    CLevelMeter right(args_.meter_samples);
    CLevelMeter left_ahead(args_.meter_samples);
    CLevelMeter right_ahead(args_.meter_samples);
    double left_energy = 0.0;
    double right_energy = 0.0;
    initializeMeters(left, right, left_energy, right_energy);
    initializeMeters(left_ahead, right_ahead, left_energy, right_energy);
    add_channel(left, left_ahead);
    add_channel(right, right_ahead);
    gate_file();
}

/** Reads count samples from the start of the current handle's position and seeks back over them. */
long long CNoiseGate::read_start(double* samples, long long count) {
    const long long read = sf_read_double(current_.get(), samples, count);
    if (read < count) {
        throw ss_sf_unexpected_eof(args_.sound_file_in);
    }
    if (sf_seek(current_.get(), -count / info_.channels, SEEK_CUR) == -1) {
        throw ss_sf_seek_error(args_.sound_file_in);
    }
    return read;
}

void CNoiseGate::initializeMeter(CLevelMeter& meter) {
    std::vector<double> samples(static_cast<std::size_t>(meter.size()));
    read_start(samples.data(), meter.size());
    meter.initialize(samples.data());
}

void CNoiseGate::initializeMeters(CLevelMeter& left,
                                  CLevelMeter& right,
                                  double& left_energy,
                                  double& right_energy) {
    const std::size_t frames = static_cast<std::size_t>(left.size());
    std::vector<double> samples(2 * frames);
    read_start(samples.data(), 2LL * left.size());
    std::vector<double> one_channel(frames);
    for (std::size_t i = 0; i < frames; ++i) {
        one_channel[i] = samples[2 * i];
    }
    left_energy = left.initialize(one_channel.data());
    for (std::size_t i = 0; i < frames; ++i) {
        one_channel[i] = samples[2 * i + 1];
    }
    right_energy = right.initialize(one_channel.data());
}

void CNoiseGate::add_channel(const CLevelMeter& current, const CLevelMeter& ahead) {
    const bool open = args_.attack_energy < current.level() || args_.attack_energy < ahead.level();
    channels_.push_back(
        {current, ahead, open ? kOpen : kClosed, open ? args_.open_gain : args_.closed_gain, 0});
}

void CNoiseGate::gate_file() {
    const int channels = info_.channels;
    const int block = kBlockSamples - kBlockSamples % channels;
    const long long blocks = ceildiv(info_.frames * channels, block);
    CProgress progress(progress_range::kGate.low, progress_range::kGate.high);
    FiniteGuard guard(args_.sound_file_in, info_);

    long long blocks_done = 0;
    for (long long count = 0;
         (count = sf_read_double(current_.get(), current_block_.get(), block)) > 0;) {
        // Near the end of the file this read comes up short: what the last block left behind is
        // then still in the buffer, and is taken as if it lay ahead.
        const long long ahead_count = sf_read_double(ahead_.get(), ahead_block_.get(), block);
        guard.check(current_block_.get(), count);
        for (int channel = 0; channel < channels; ++channel) {
            gate_channel(channels_[static_cast<std::size_t>(channel)],
                         current_block_.get() + channel, ahead_block_.get() + channel,
                         count / channels, ahead_count > 0);
        }
        const long long written = sf_write_double(output_.get(), current_block_.get(), count);
        if (written != count) {
            throw ss_sf_write_error(args_.sound_file_out, count, written,
                                    sf_strerror(output_.get()));
        }
        ++blocks_done;
        progress.show(static_cast<double>(blocks_done) / static_cast<double>(blocks));
    }
}

/** Gates one channel of a block: every info_.channels-th sample, count of them. */
void CNoiseGate::gate_channel(
    Channel& shared, double* samples, const double* ahead, long long count, bool has_ahead) const {
    Channel channel = shared;  // a local copy stays in registers
    const int stride = info_.channels;
    for (long long i = 0; i < count * stride; i += stride) {
        const double current_energy = channel.current.update(samples[i]);
        const double ahead_energy = has_ahead ? channel.ahead.update(ahead[i]) : current_energy;
        step(channel, current_energy, ahead_energy);
        samples[i] *= channel.gain;
    }
    shared = channel;
}

/** At most one transition a sample; outside the two ramps it leaves the gain alone. */
inline void CNoiseGate::step(Channel& channel, double current_energy, double ahead_energy) const {
    switch (channel.state) {
        case kOpen:
            if (current_energy < args_.release_energy) {
                startHolding(channel.state, channel.held);
            }
            break;
        case kClosed:
            if (ahead_energy > args_.attack_energy) {
                startOpening(channel.state);
            }
            break;
        case kOpening:
            if (ahead_energy < args_.release_energy) {
                startClosing(channel.state);
            } else {
                channel.gain += attack_step_;
                if (channel.gain >= args_.open_gain) {
                    channel.gain = args_.open_gain;
                    channel.state = kOpen;
                }
            }
            break;
        case kClosing:
            if (ahead_energy > args_.attack_energy) {
                startOpening(channel.state);
            } else {
                channel.gain -= release_step_;
                if (channel.gain <= args_.closed_gain) {
                    channel.gain = args_.closed_gain;
                    channel.state = kClosed;
                }
            }
            break;
        case kHolding:
            if (current_energy <= args_.release_energy) {
                if (channel.held >= args_.hold_samples) {
                    startClosing(channel.state);
                }
                ++channel.held;
            } else {
                channel.state = kOpen;
            }
            break;
    }
}

void CNoiseGate::startHolding(eStateType& state, int& counter) {
    state = kHolding;
    counter = 0;
}

}  // namespace gate
