#include "Common/gate/NoiseGate.h"

#include <algorithm>
#include <cstddef>

#include "Common/gate/gate.h"
#include "Common/reporting/progress.h"
#include "Common/ss_util.h"
#include "Common/stream/pump.h"
#include "Common/units.h"

namespace gate {

/*
 * How the gate goes over a recording. The loop hands over blocks of any length; they go into a line
 * of samples, addressed by frames from the recording's start. As soon as the line reaches far
 * enough ahead, a block of fixed length is gated: first the energies of all its samples are
 * measured, then each channel's gain follows them. The two passes are apart because each waits for
 * something else: an energy for the sum before it, a gain for the state before it. Apart, the sums
 * of all channels run side by side and the state machine has only numbers to compare.
 *
 * Where blocks begin and end matters at the recording's end alone (see NoiseGate.h), but there it
 * decides about bits. So the gate keeps count of its own blocks, whatever the loop hands over.
 */
namespace {
constexpr const char* kSource = "Common/gate/gate";
}  // namespace

CNoiseGate::CNoiseGate(const GateArgs& args,
                       stream::Source& input,
                       stream::Receiver& output,
                       stream::Source* ahead)
    : Stage(output),
      args_(args),
      input_(input),
      ahead_(ahead),
      channel_count_(input.info().channels),
      block_frames_(kBlockSamples / channel_count_),
      attack_step_((args.open_gain - args.closed_gain) / args.attack_samples),
      release_step_((args.open_gain - args.closed_gain) / args.release_samples) {
    allocate(block_, kBlockSamples, "current block", kSource);
    allocate(ahead_block_, kBlockSamples, "look-ahead block", kSource);
    allocate(energies_, kBlockSamples, "energies", kSource);
    allocate(ahead_energies_, kBlockSamples, "energies ahead", kSource);
}

int CNoiseGate::exec() {
    if (channel_count_ == 1) {
        exec_mono();
    } else {
        exec_stereo();
    }
    return 0;
}

void CNoiseGate::exec_mono() {
    gate_input(&CNoiseGate::start_mono);
}

void CNoiseGate::exec_stereo() {
    gate_input(&CNoiseGate::start_stereo);
}

void CNoiseGate::gate_input(void (CNoiseGate::*start)()) {
    start_ = start;
    const double blocks = static_cast<double>(ceildiv(input_.info().frames, block_frames_));
    stream::pump(input_, *this,
                 stream::Pace(progress_range::kGate, block_frames_, [blocks](long long block) {
                     return static_cast<double>(block + 1) / blocks;
                 }));
}

void CNoiseGate::take(double* samples, long long frames) {
    line_.insert(line_.end(), samples, samples + frames * channel_count_);
    received_ += frames;
    if (channels_.empty() && received_ >= args_.meter_samples) {
        (this->*start_)();
    }
    if (!channels_.empty()) {
        while (received_ - args_.anticipate_samples >= gated_ + block_frames_) {
            gate_block(block_frames_);
        }
        forget_passed_frames();
    }
}

void CNoiseGate::end() {
    if (channels_.empty()) {
        (this->*start_)();  // the recording is shorter than the meters: let them say so
    }
    while (gated_ < received_) {
        gate_block(std::min(block_frames_, received_ - gated_));
    }
    Stage::end();
}

/** The pointer holds until the next take, which may move the line. */
const double* CNoiseGate::at(long long frame) const {
    return line_.data() + (frame - line_start_) * channel_count_;
}

/** Keeps what is still to be gated, and the block before what lies ahead of it. */
void CNoiseGate::forget_passed_frames() {
    // Moving the rest of the line costs its length. It is moved when more has passed than is left:
    // all moves together cost no more than the recording has samples.
    const long long oldest = std::min(gated_, gated_ + args_.anticipate_samples - block_frames_);
    const long long passed = oldest - line_start_;
    if (2 * passed * channel_count_ > static_cast<long long>(line_.size())) {
        line_.erase(line_.begin(), line_.begin() + passed * channel_count_);
        line_start_ = oldest;
    }
}

/** Gates the next frames, a block or the recording's last, and hands them on. */
void CNoiseGate::gate_block(long long frames) {
    long long frames_ahead = std::clamp(received_ - args_.anticipate_samples - gated_, 0LL, frames);
    const double* ahead = look_ahead(frames, frames_ahead);
    std::copy_n(at(gated_), frames * channel_count_, block_.get());
    if (channel_count_ == 1) {
        measure_mono(ahead, frames, frames_ahead > 0);
    } else {
        measure_stereo(ahead, frames, frames_ahead > 0);
    }
    for (int channel = 0; channel < channel_count_; ++channel) {
        gate_channel(channel, frames);
    }
    gated_ += frames;
    next().take(block_.get(), frames);
}

/**
 * What lies ahead of the next frames, where the recording still has frames_ahead of them. A second
 * reader tells itself how many it has, and what a short read leaves behind them in the buffer.
 */
const double* CNoiseGate::look_ahead(long long frames, long long& frames_ahead) {
    if (ahead_ != nullptr) {
        frames_ahead = ahead_->read(ahead_block_.get(), block_frames_);
        return ahead_block_.get();
    }
    const long long start = gated_ + args_.anticipate_samples;
    if (frames_ahead == frames) {
        return at(start);
    }
    double* past_end = std::copy_n(at(std::min(start, received_)), frames_ahead * channel_count_,
                                   ahead_block_.get());
    const long long count = (frames - frames_ahead) * channel_count_;
    // The first block has no block before it, and one with nothing ahead is not looked at.
    if (gated_ == 0 || frames_ahead == 0 || input_.zeroes_past_end()) {
        std::fill_n(past_end, count, 0.0);
    } else {
        std::copy_n(at(start + frames_ahead - block_frames_), count, past_end);
    }
    return ahead_block_.get();
}

void CNoiseGate::start_mono() {
    CLevelMeter current(args_.meter_samples);
    CLevelMeter ahead(args_.meter_samples);
    initializeMeter(current);
    initializeMeter(ahead);
    add_channel(current, ahead);
}

void CNoiseGate::start_stereo() {
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
}

/** The recording's first frames, as many as a meter holds. */
const double* CNoiseGate::first_frames() const {
    if (received_ < args_.meter_samples) {
        throw ss_sf_unexpected_eof(input_.name());
    }
    return line_.data();
}

void CNoiseGate::initializeMeter(CLevelMeter& meter) {
    meter.initialize(first_frames());
}

void CNoiseGate::initializeMeters(CLevelMeter& left,
                                  CLevelMeter& right,
                                  double& left_energy,
                                  double& right_energy) {
    const double* samples = first_frames();
    const std::size_t frames = static_cast<std::size_t>(left.size());
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
    // A recording that begins in the middle of a word must not fade in.
    const bool open = args_.attack_energy < current.level() || args_.attack_energy < ahead.level();
    channels_.push_back(
        {current, ahead, {open ? kOpen : kClosed, open ? args_.open_gain : args_.closed_gain, 0}});
}

/**
 * The energies of a block, before anything is gated. Each is a sum that waits for the one before:
 * those of both channels go along side by side. Without a sample ahead the current energy stands
 * for the one ahead.
 */
void CNoiseGate::measure_mono(const double* ahead, long long frames, bool has_ahead) {
    CLevelMeter current = channels_[0].current;  // local copies stay in registers
    CLevelMeter later = channels_[0].ahead;
    for (long long i = 0; i < frames; ++i) {
        energies_[i] = current.update(block_[i]);
        ahead_energies_[i] = has_ahead ? later.update(ahead[i]) : energies_[i];
    }
    channels_[0].current = current;
    channels_[0].ahead = later;
}

void CNoiseGate::measure_stereo(const double* ahead, long long frames, bool has_ahead) {
    CLevelMeter left = channels_[0].current;
    CLevelMeter right = channels_[1].current;
    CLevelMeter left_ahead = channels_[0].ahead;
    CLevelMeter right_ahead = channels_[1].ahead;
    for (long long i = 0; i < 2 * frames; i += 2) {
        energies_[i] = left.update(block_[i]);
        energies_[i + 1] = right.update(block_[i + 1]);
        ahead_energies_[i] = has_ahead ? left_ahead.update(ahead[i]) : energies_[i];
        ahead_energies_[i + 1] = has_ahead ? right_ahead.update(ahead[i + 1]) : energies_[i + 1];
    }
    channels_[0].current = left;
    channels_[1].current = right;
    channels_[0].ahead = left_ahead;
    channels_[1].ahead = right_ahead;
}

/**
 * Gates one channel of a block whose energies are known. Most samples leave the gate as it is, open
 * or closed: they are passed over in loops of their own.
 */
void CNoiseGate::gate_channel(int index, long long frames) {
    Gain gain = channels_[static_cast<std::size_t>(index)].gain;  // local copies, as above
    double* const samples = block_.get();
    const double* const energies = energies_.get();
    const double* const ahead_energies = ahead_energies_.get();
    const double attack_energy = args_.attack_energy;
    const double release_energy = args_.release_energy;
    const long long stride = channel_count_;
    const long long end = frames * stride;
    for (long long i = index; i < end; i += stride) {
        const long long start = i;
        if (gain.state == kOpen) {
            while (i < end && !(energies[i] < release_energy)) {
                i += stride;
            }
        } else if (gain.state == kClosed) {
            while (i < end && !(ahead_energies[i] > attack_energy)) {
                i += stride;
            }
        }
        for (long long same = start; same < i; same += stride) {
            samples[same] *= gain.value;
        }
        if (i < end) {
            step(gain, energies[i], ahead_energies[i]);
            samples[i] *= gain.value;
        }
    }
    channels_[static_cast<std::size_t>(index)].gain = gain;
}

// Both ramps are sums of equal steps, which miss the end by rounding: it is set, not met.

inline void CNoiseGate::open_further(Gain& gain) const {
    gain.value += attack_step_;
    if (gain.value >= args_.open_gain) {
        gain.value = args_.open_gain;
        gain.state = kOpen;
    }
}

inline void CNoiseGate::close_further(Gain& gain) const {
    gain.value -= release_step_;
    if (gain.value <= args_.closed_gain) {
        gain.value = args_.closed_gain;
        gain.state = kClosed;
    }
}

/** At most one transition a sample; outside the two ramps it leaves the gain alone. */
inline void CNoiseGate::step(Gain& gain, double current_energy, double ahead_energy) const {
    switch (gain.state) {
        // The way out of the two resting states looks at different places: speech is to find the
        // gate open, so opening looks ahead; the end of a word is to pass, so holding looks at now.
        case kOpen:
            if (current_energy < args_.release_energy) {
                startHolding(gain.state, gain.held);
            }
            break;
        case kClosed:
            if (ahead_energy > args_.attack_energy) {
                startOpening(gain.state);
            }
            break;
        // A ramp turns round where the other threshold is crossed, from the gain that it has
        // reached.
        case kOpening:
            if (ahead_energy < args_.release_energy) {
                startClosing(gain.state);
            } else {
                open_further(gain);
            }
            break;
        case kClosing:
            if (ahead_energy > args_.attack_energy) {
                startOpening(gain.state);
            } else {
                close_further(gain);
            }
            break;
        case kHolding:
            if (current_energy <= args_.release_energy) {
                // Tested before it is counted: a hold of n samples lasts n + 1.
                if (gain.held >= args_.hold_samples) {
                    startClosing(gain.state);
                }
                ++gain.held;
            } else {
                gain.state = kOpen;
            }
            break;
    }
}

void CNoiseGate::startHolding(eStateType& state, int& counter) {
    state = kHolding;
    counter = 0;
}

}  // namespace gate
