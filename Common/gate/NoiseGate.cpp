#include "Common/gate/NoiseGate.h"

#include <algorithm>
#include <cstddef>

#include "Common/gate/gate.h"
#include "Common/reporting/progress.h"
#include "Common/ss_util.h"
#include "Common/stream/pump.h"
#include "Common/units.h"

namespace gate {

namespace {
constexpr const char* kSource = "Common/gate/gate";
}  // namespace

CNoiseGate::CNoiseGate(const GateArgs& args, stream::Source& input, stream::Receiver& output)
    : Stage(output),
      args_(args),
      input_(input),
      channel_count_(input.info().channels),
      block_frames_(kBlockSamples / channel_count_),
      attack_step_((args.open_gain - args.closed_gain) / args.attack_samples),
      release_step_((args.open_gain - args.closed_gain) / args.release_samples) {
    allocate(block_, kBlockSamples, "current block", kSource);
    allocate(ahead_block_, kBlockSamples, "look-ahead block", kSource);
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

const double* CNoiseGate::at(long long frame) const {
    return line_.data() + (frame - line_start_) * channel_count_;
}

/** Keeps what is still to be gated, and the block before what lies ahead of it. */
void CNoiseGate::forget_passed_frames() {
    const long long oldest = std::min(gated_, gated_ + args_.anticipate_samples - block_frames_);
    const long long passed = oldest - line_start_;
    if (2 * passed * channel_count_ > static_cast<long long>(line_.size())) {
        line_.erase(line_.begin(), line_.begin() + passed * channel_count_);
        line_start_ = oldest;
    }
}

/** Gates the next frames, a block or the recording's last, and hands them on. */
void CNoiseGate::gate_block(long long frames) {
    const long long frames_ahead =
        std::clamp(received_ - args_.anticipate_samples - gated_, 0LL, frames);
    const double* ahead = look_ahead(frames, frames_ahead);
    std::copy_n(at(gated_), frames * channel_count_, block_.get());
    for (int channel = 0; channel < channel_count_; ++channel) {
        gate_channel(channels_[static_cast<std::size_t>(channel)], block_.get() + channel,
                     ahead + channel, frames, frames_ahead > 0);
    }
    gated_ += frames;
    next().take(block_.get(), frames);
}

/** What lies ahead of the next frames, where the recording still has frames_ahead of them. */
const double* CNoiseGate::look_ahead(long long frames, long long frames_ahead) {
    const long long start = gated_ + args_.anticipate_samples;
    if (frames_ahead == frames) {
        return at(start);
    }
    double* past_end = std::copy_n(at(std::min(start, received_)), frames_ahead * channel_count_,
                                   ahead_block_.get());
    const long long count = (frames - frames_ahead) * channel_count_;
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
    const bool open = args_.attack_energy < current.level() || args_.attack_energy < ahead.level();
    channels_.push_back(
        {current, ahead, open ? kOpen : kClosed, open ? args_.open_gain : args_.closed_gain, 0});
}

/** Gates one channel of a block: every channel_count_-th sample, count of them. */
void CNoiseGate::gate_channel(
    Channel& shared, double* samples, const double* ahead, long long count, bool has_ahead) const {
    Channel channel = shared;  // a local copy stays in registers
    const int stride = channel_count_;
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
