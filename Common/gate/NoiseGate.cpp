#include "Common/gate/NoiseGate.h"

#include <algorithm>
#include <cstddef>
#include <limits>

#include "Common/gate/gate.h"
#include "Common/reporting/progress.h"
#include "Common/ss_util.h"
#include "Common/stream/pump.h"
#include "Common/units.h"

namespace gate {

/*
 * How the gate processes a recording. The loop passes blocks of any length, which are stored in a
 * delay line, addressed by frames from the recording's start. As soon as the line reaches far
 * enough ahead, a block of fixed length is gated frame by frame: its energies are measured, and
 * each channel's gain follows them. An energy depends on the sum before it, and that latency is
 * longer than all other work of a frame, so the other work is free if it is done between the sums.
 * Most frames leave every channel as it is, open or closed: two comparisons for all channels
 * together show that, and only if they fail does the state machine run.
 *
 * Block boundaries matter only at the recording's end (see NoiseGate.h), but there they change
 * bits. So the gate counts its own blocks, whatever the length of the blocks that it gets.
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
    stream::pump(
        input_, *this,
        stream::ProgressPacer(progress_range::kGate, block_frames_, [blocks](long long block) {
            return static_cast<double>(block + 1) / blocks;
        }));
}

void CNoiseGate::process(double* samples, long long frames) {
    line_.insert(line_.end(), samples, samples + frames * channel_count_);
    received_ += frames;
    if (meters_.empty() && received_ >= args_.meter_samples) {
        (this->*start_)();
    }
    if (!meters_.empty()) {
        while (received_ - args_.anticipate_samples >= gated_ + block_frames_) {
            gate_block(block_frames_);
        }
        forget_passed_frames();
    }
}

void CNoiseGate::finish() {
    if (meters_.empty()) {
        (this->*start_)();  // the recording is shorter than the meters: let them say so
    }
    while (gated_ < received_) {
        gate_block(std::min(block_frames_, received_ - gated_));
    }
    Stage::finish();
}

/** The pointer holds until the next take, which may move the line. */
const double* CNoiseGate::at(long long frame) const {
    return line_.data() + (frame - line_start_) * channel_count_;
}

/** Keeps the frames still to be gated, and the block before the samples ahead of them. */
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
    const double* const samples = at(gated_);
    if (channel_count_ == 1) {
        frames_ahead > 0 ? gate_mono<true>(samples, ahead, frames)
                         : gate_mono<false>(samples, ahead, frames);
    } else {
        frames_ahead > 0 ? gate_stereo<true>(samples, ahead, frames)
                         : gate_stereo<false>(samples, ahead, frames);
    }
    gated_ += frames;
    next().process(block_.get(), frames);
}

/**
 * The samples ahead of the next frames; frames_ahead receives how many of them the recording still
 * has. A second reader sets that count and what a short read leaves behind them in the buffer.
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
    // The first block has no block before it, and a block without samples ahead is not read.
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
    start_gain(current);
    meters_ = {PairMeter(current, ahead)};
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
    start_gain(left);
    start_gain(right);
    meters_ = {PairMeter(left, right), PairMeter(left_ahead, right_ahead)};
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

void CNoiseGate::start_gain(const CLevelMeter& first) {
    // A recording that begins in the middle of a word must not fade in.
    const bool open = args_.attack_energy < first.level();
    gains_.push_back({open ? kOpen : kClosed, open ? args_.open_gain : args_.closed_gain, 0});
}

namespace {

constexpr double kNever = std::numeric_limits<double>::infinity();

/** Whether each sample counts: in the ramps and the hold. */
bool is_busy(eStateType state) {
    return state != kOpen && state != kClosed;
}

}  // namespace

/** An open channel rests while its energy is not below this, */
inline double CNoiseGate::least_to_rest(const Gain& gain) const {
    if (gain.state == kOpen) {
        return args_.release_energy;
    }
    return -kNever;
}

/** and a closed one while the energy ahead is not above that. */
inline double CNoiseGate::most_to_rest(const Gain& gain) const {
    if (gain.state == kClosed) {
        return args_.attack_energy;
    }
    return kNever;
}

/**
 * Both functions write what they make of the samples into the block. Without a sample ahead the
 * current energy replaces the one ahead, up to the end.
 */
template <bool kHasAhead>
void CNoiseGate::gate_mono(const double* samples, const double* ahead, long long frames) {
    PairMeter::Run meter(meters_[0]);
    Gain gain = gains_[0];  // a local copy stays in registers
    double least = least_to_rest(gain);
    double most = most_to_rest(gain);
    bool busy = is_busy(gain.state);
    for (long long i = 0; i < frames; ++i) {
        const Pair energies = meter.update(Pair{samples[i], kHasAhead ? ahead[i] : samples[i]});
        const double current = energies[0];
        const double later = kHasAhead ? energies[1] : current;
        if (busy || current < least || later > most) {
            const eStateType before = gain.state;
            step(gain, current, later);
            if (gain.state != before) {
                least = least_to_rest(gain);
                most = most_to_rest(gain);
                busy = is_busy(gain.state);
            }
        }
        block_[i] = samples[i] * gain.value;
    }
    gains_[0] = gain;
    meter.store();
}

template <bool kHasAhead>
void CNoiseGate::gate_stereo(const double* samples, const double* ahead, long long frames) {
    PairMeter::Run meter(meters_[0]);
    PairMeter::Run meter_ahead(meters_[1]);
    Gain left = gains_[0];  // local copies, as above
    Gain right = gains_[1];
    Pair gains{left.value, right.value};
    Pair least{least_to_rest(left), least_to_rest(right)};
    Pair most{most_to_rest(left), most_to_rest(right)};
    bool busy = is_busy(left.state) || is_busy(right.state);
    double* const block = block_.get();
    for (long long i = 0; i < 2 * frames; i += 2) {
        const Pair frame = load_pair(samples + i);
        const Pair current = meter.update(frame);
        const Pair later = kHasAhead ? meter_ahead.update(load_pair(ahead + i)) : current;
        const auto leaves = (current < least) | (later > most);
        if (busy || (leaves[0] | leaves[1]) != 0) {
            const eStateType left_before = left.state;
            const eStateType right_before = right.state;
            step(left, current[0], later[0]);
            step(right, current[1], later[1]);
            gains = Pair{left.value, right.value};
            if (left.state != left_before || right.state != right_before) {
                least = Pair{least_to_rest(left), least_to_rest(right)};
                most = Pair{most_to_rest(left), most_to_rest(right)};
                busy = is_busy(left.state) || is_busy(right.state);
            }
        }
        store_pair(block + i, frame * gains);
    }
    gains_ = {left, right};
    meter.store();
    meter_ahead.store();
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
