#include "leveling/findings/profiler.h"

#include <algorithm>
#include <cmath>

#include "leveling/audio/loudness_meter.h"
#include "leveling/findings/sample_loops.h"
#include "leveling/preparation/levels.h"

namespace quorvane {
namespace {

// The signal is halved for spectra as long as its rate stays at or above these.
constexpr int kLeastMiddle_hz = 8000;
constexpr int kLeastLow_hz = 1000;
// Windows below 1 kHz overlap by half.
constexpr std::size_t kLowStep = 256;
constexpr double kVoiceFrom_hz = 150;
// 1 / sqrt(2), of a second-order Butterworth filter.
constexpr double kQuality = 0.70710678118654752;
constexpr std::size_t kPiecesPerSlot = 5;  // 2 ms
// slot_levels: half dB above this, in a byte.
constexpr double kFloor_db = -120;
constexpr double kPerDb = 2;
constexpr float kMostPower = 1e12F;  // a higher power is not sound

constexpr float kNoGap_db = 6;          // so near to the loudest of late is a word
constexpr float kForgetting_db = 0.1F;  // in a tenth of a second
constexpr float kTonesFrom_hz = 350;
constexpr float kTonesTo_hz = 3500;

// The mains frequencies of the world, and how many of their multiples are heard as hum.
constexpr std::array<double, 2> kMains_hz = {50, 60};
constexpr int kHarmonics = 6;  // what lies above is a buzz, and weak
constexpr double kBesideFrom_hz = 10;
constexpr double kBesideTo_hz = 18;
constexpr double kRumbleFrom_hz = 8;
constexpr double kRumbleTo_hz = 40;
constexpr double kVoiceLowFrom_hz = 70;
constexpr double kVoiceLowTo_hz = 500;

// Bounds the memory of a damaged recording, which may have a break in every piece.
constexpr std::size_t kMostBreaks = 20000;
// Longer silence is a pause of the recorder and not a gap in the sound.
constexpr double kLongestZeros_s = 0.5;
// Of full scale: -26 dBFS. Smaller jumps are lost among the steps of speech.
constexpr float kLeastJump = 0.05F;
constexpr float kOverSteps = 8;  // a jump is so much larger than the steps before and behind it

/** The power between two frequencies. Bin 0 is the mean and never counts. */
float band(const std::vector<float>& power, double from_hz, double to_hz, double bin_hz) {
    const auto from = static_cast<std::size_t>(std::max(1.0, std::ceil(from_hz / bin_hz)));
    const auto to = std::min(static_cast<std::size_t>(to_hz / bin_hz), power.size() - 1);
    float sum = 0;
    for (std::size_t k = from; k <= to; ++k) {
        sum += power[k];
    }
    return sum;
}

/** The level of a mean square in a byte, rounded to half a dB and clipped to its range. */
std::uint8_t slot_level(double power) {
    const double steps = (level_of_power(power) - kFloor_db) * kPerDb;
    return static_cast<std::uint8_t>(std::clamp(std::floor(steps + 0.5), 0.0, 255.0));
}

}  // namespace

void SoundProfile::append(const SoundProfile& later) {
    if (later.frames == 0) {
        return;
    }
    // The places of flat tops are counted in tenths, so they move by so many.
    const auto count = static_cast<std::uint32_t>(tenths.size());
    const auto time_s = static_cast<float>(static_cast<double>(frames) / sample_rate_hz);
    tenths.insert(tenths.end(), later.tenths.begin(), later.tenths.end());
    for (LowWindow window : later.lows) {
        window.time_s += time_s;
        lows.push_back(window);
    }
    for (Break place : later.breaks) {
        place.from_s += time_s;
        place.to_s += time_s;
        breaks.push_back(place);
    }
    for (std::size_t i = 0; i < tops.size(); ++i) {
        tops[i].append(later.tops[i], count);
    }
    frames += later.frames;
}

void Profiler::begin(int channels, int sample_rate_hz) {
    file_channels_ = static_cast<std::size_t>(channels);
    channels_ = std::min<std::size_t>(file_channels_, 2);
    tenth_frames_ = static_cast<std::size_t>(
        std::max<std::int64_t>(LoudnessMeter::stretch_frames(sample_rate_hz), 1));
    middle_rate_hz_ = sample_rate_hz;
    has_last_lines_ = false;
    loudest_db_ = static_cast<float>(kFloor_db);
    profile_ = {};
    profile_.tenth_frames = static_cast<std::int64_t>(tenth_frames_);
    profile_.sample_rate_hz = sample_rate_hz;
    profile_.channels = static_cast<int>(channels_);
    profile_.tops.assign(2 * channels_, FlatTops(sample_rate_hz));
    // The number of halvings from the file's rate to between 8 and 16 kHz.
    std::size_t stages = 0;
    for (; middle_rate_hz_ / 2 >= kLeastMiddle_hz; middle_rate_hz_ /= 2) {
        ++stages;
    }
    std::size_t low_stages = 0;
    for (low_rate_hz_ = middle_rate_hz_; low_rate_hz_ / 2 >= kLeastLow_hz; low_rate_hz_ /= 2) {
        ++low_stages;
    }
    // A file with a very low rate has its own, lower limit.
    voice_from_.emplace(
        high_pass(std::min(kVoiceFrom_hz, 0.2 * middle_rate_hz_), kQuality, middle_rate_hz_));
    for (std::size_t c = 0; c < 2; ++c) {
        // One sample more in front: the last one of the tenth before.
        plane_[c].assign(tenth_frames_ + 1, 0.0F);
        to_middle_[c].resize(stages);
        to_low_[c].resize(low_stages);
        // A window of zeros, so that the first spectra have a past.
        middle_[c].assign(kWindow, 0.0F);
        low_[c].clear();
    }
    for (std::vector<float>* values : {&logs_, &lines_, &last_lines_}) {
        values->assign(kWindow / 2 + 1, 0.0F);
    }
}

void Profiler::add(const float* samples, std::size_t frames) {
    while (frames > 0) {
        // Up to the end of the tenth: each is finished as soon as it is full.
        const std::size_t here = std::min(frames, tenth_frames_ - filled_);
        float* const left = plane_[0].data() + 1 + filled_;
        if (file_channels_ == 1) {
            std::copy_n(samples, here, left);
        } else if (file_channels_ == 2) {
            split(samples, here, left, plane_[1].data() + 1 + filled_);
        } else {
            for (std::size_t i = 0; i < here; ++i) {
                left[i] = samples[i * file_channels_];
                plane_[1][1 + filled_ + i] = samples[i * file_channels_ + 1];
            }
        }
        filled_ += here;
        profile_.frames += static_cast<std::int64_t>(here);
        samples += here * file_channels_;
        frames -= here;
        if (filled_ == tenth_frames_) {
            finish_tenth();
        }
    }
}

void Profiler::finish_tenth() {
    Tenth tenth;
    look_at_samples(tenth);
    for (std::size_t c = 0; c < channels_; ++c) {
        // Also true for what is not a number. Such a tenth counts as silence.
        if (!(tenth.power[c] < kMostPower)) {
            tenth = {};
            std::fill(plane_[c].begin(), plane_[c].end(), 0.0F);
        }
        const float* samples = plane_[c].data() + 1;
        std::size_t count = tenth_frames_;
        // Down to the middle rate; each stage halves it.
        for (HalfRate& stage : to_middle_[c]) {
            other_.clear();
            stage.process(samples, count, other_);
            one_.swap(other_);
            samples = one_.data();
            count = one_.size();
        }
        if (to_middle_[c].empty()) {
            one_.assign(samples, samples + count);
        }
        middle_[c].insert(middle_[c].end(), one_.begin(), one_.end());
        new_middle_ = one_.size();
        // And on to the low rate.
        for (std::size_t i = 0; i < to_low_[c].size(); ++i) {
            other_.clear();
            to_low_[c][i].process(one_.data(), one_.size(), other_);
            one_.swap(other_);
        }
        low_[c].insert(low_[c].end(), one_.begin(), one_.end());
        // The step to the first sample of the next tenth is measured from here.
        plane_[c][0] = plane_[c][tenth_frames_];
    }
    // One channel: the second half of each pair is silent.
    if (channels_ == 1) {
        middle_[1].resize(middle_[0].size());
        low_[1].resize(low_[0].size());
    }
    look_at_speech(tenth);
    look_at_tones(tenth);
    // The next spectrum needs one window of the past.
    for (std::vector<float>& plane : middle_) {
        plane.erase(plane.begin(), plane.end() - kWindow);
    }
    profile_.tenths.push_back(tenth);
    filled_ = 0;
    look_at_lows();
}

/** Seconds from the start of the recording; frame: in the tenth that is being filled. */
double Profiler::time_of(std::size_t frame) const {
    const auto before = static_cast<double>(profile_.tenths.size() * tenth_frames_);
    return (before + static_cast<double>(frame)) / profile_.sample_rate_hz;
}

void Profiler::look_at_samples(Tenth& tenth) {
    const std::size_t pieces = kSlots * kPiecesPerSlot;
    std::array<double, kSlots> slots{};
    for (std::size_t c = 0; c < channels_; ++c) {
        double sum = 0;
        double squares = 0;
        for (std::size_t piece = 0; piece < pieces; ++piece) {
            const std::size_t from = piece * tenth_frames_ / pieces;
            const std::size_t to = (piece + 1) * tenth_frames_ / pieces;
            if (from == to) {
                continue;
            }
            const float* const samples = plane_[c].data() + 1 + from;
            const PieceSums sums = sums_of(samples, to - from);
            sum += static_cast<double>(sums.sum);
            squares += static_cast<double>(sums.squares);
            slots[piece / kPiecesPerSlot] += static_cast<double>(sums.squares);
            const auto at = static_cast<std::uint32_t>(profile_.tenths.size());
            profile_.tops[2 * c].add(samples, to - from, 1, sums.highest, at);
            profile_.tops[2 * c + 1].add(samples, to - from, -1, -sums.lowest, at);
            follow_breaks(c, from, to, std::max(sums.highest, -sums.lowest), sums.step);
        }
        const auto frames = static_cast<double>(tenth_frames_);
        tenth.power[c] = static_cast<float>(squares / frames);
        tenth.mean[c] = static_cast<float>(sum / frames);
    }
    if (channels_ == 2) {
        // The correlation of the channels follows from this and their powers.
        tenth.cross = product_of(plane_[0].data() + 1, plane_[1].data() + 1, tenth_frames_) /
                      static_cast<float>(tenth_frames_);
    }
    // Mean squares over 10 ms.
    for (std::size_t slot = 0; slot < kSlots; ++slot) {
        tenth.slot_levels[slot] =
            slot_level(slots[slot] * kSlots / static_cast<double>(tenth_frames_));
    }
}

/** Zeros that begin and end within sound, and steps between samples that are out of place. */
void Profiler::follow_breaks(
    std::size_t channel, std::size_t from, std::size_t to, float peak, float step) {
    Follower& follower = followers_[channel];
    if (profile_.breaks.size() >= kMostBreaks) {
        return;
    }
    const double begin_s = time_of(from);
    // Every sample of the piece is 0, which sound from a microphone never has for long.
    if (peak == 0) {
        if (follower.zeros_from_s < 0) {
            follower.zeros_from_s = begin_s;
        }
    } else {
        if (follower.zeros_from_s >= 0 && begin_s - follower.zeros_from_s <= kLongestZeros_s) {
            profile_.breaks.push_back({static_cast<float>(follower.zeros_from_s),
                                       static_cast<float>(begin_s),
                                       std::min(follower.peak_before, peak), false});
        }
        follower.zeros_from_s = -1;
        follower.peak_before = peak;
    }
    // The pieces in a row: two before, the one with the jump, and this one behind it.
    const float before = std::max(follower.steps[0], follower.steps[1]);
    const float jump = follower.steps[2];
    if (jump > kLeastJump && jump > kOverSteps * std::max(before, step) && before > 0 && step > 0) {
        const double width_s = static_cast<double>(to - from) / profile_.sample_rate_hz;
        profile_.breaks.push_back(
            {static_cast<float>(begin_s - width_s), static_cast<float>(begin_s), jump, true});
    }
    follower.steps[0] = follower.steps[1];
    follower.steps[1] = follower.steps[2];
    follower.steps[2] = step;
}

void Profiler::look_at_speech(Tenth& tenth) {
    const std::size_t begin = middle_[0].size() - new_middle_;
    // Two values a tenth, each of 50 ms.
    for (std::size_t half = 0; half < 2; ++half) {
        const std::size_t from = begin + half * new_middle_ / 2;
        const std::size_t to = begin + (half + 1) * new_middle_ / 2;
        PairFilter filter = *voice_from_;
        Pair power = {0, 0};
        for (std::size_t i = from; i < to; ++i) {
            const Pair y = filter.next(
                Pair{static_cast<double>(middle_[0][i]), static_cast<double>(middle_[1][i])});
            power += y * y;
        }
        filter.drop_tail();
        voice_from_ = filter;
        const auto count = static_cast<double>(std::max<std::size_t>(to - from, 1));
        tenth.speech_db[half] = static_cast<float>(level_of_power((power[0] + power[1]) / count));
    }
}

/**
 * The lines of a spectrum whose window begins there: what each bin is over the mean of its
 * neighbours, in steps of a logarithm. Their number.
 */
std::size_t Profiler::take_tones(std::size_t from, std::vector<float>& lines) {
    middle_spectrum_.take(middle_[0].data() + from, middle_[1].data() + from);
    const float bin_hz = static_cast<float>(middle_rate_hz_) / kWindow;
    const auto first = static_cast<std::size_t>(kTonesFrom_hz / bin_hz);
    const auto last = std::min(static_cast<std::size_t>(kTonesTo_hz / bin_hz), kWindow / 2 - 1);
    to_logs(middle_spectrum_.power().data(), logs_.size(), logs_.data());
    const std::size_t count = last > first + 2 * kAround ? last - first - 2 * kAround : 0;
    take_lines(logs_.data() + first, count, lines.data());
    return count;
}

/**
 * The correlation of the lines of two spectra in a row. Those of noise have nothing to do with each
 * other. Only what may be a gap between words is looked at: the spectra cost more than all else
 * that is done once for a tenth.
 */
void Profiler::look_at_tones(Tenth& tenth) {
    // The louder half decides, and the loudest level of late falls slowly.
    const float level_db = std::max(tenth.speech_db[0], tenth.speech_db[1]);
    loudest_db_ = std::max(level_db, loudest_db_ - kForgetting_db);
    if (level_db > loudest_db_ - kNoGap_db) {
        has_last_lines_ = false;
        return;
    }
    if (!has_last_lines_) {
        // The window of the tenth before stands in front of the new samples.
        take_tones(middle_[0].size() - new_middle_ - kWindow, last_lines_);
        has_last_lines_ = true;
    }
    const std::size_t count = take_tones(middle_[0].size() - kWindow, lines_);
    const auto product = static_cast<double>(product_of(lines_.data(), last_lines_.data(), count));
    const auto squares =
        static_cast<double>(product_of(lines_.data(), lines_.data(), count)) *
        static_cast<double>(product_of(last_lines_.data(), last_lines_.data(), count));
    // The cosine of the angle between both sets of lines: 1 is the same tones, 0 is noise.
    tenth.tonality = squares > 0 ? static_cast<float>(product / std::sqrt(squares)) : 0;
    lines_.swap(last_lines_);
}

/** Goes on while a whole window is there; each moves on by half of it. */
void Profiler::look_at_lows() {
    const double bin_hz = static_cast<double>(low_rate_hz_) / kWindow;
    while (low_[0].size() >= kWindow) {
        low_spectrum_.take(low_[0].data(), low_[1].data());
        const std::vector<float>& power = low_spectrum_.power();
        LowWindow window;
        const double begin_s =
            static_cast<double>(low_windows_ * kLowStep) / static_cast<double>(low_rate_hz_);
        window.time_s = static_cast<float>(begin_s);
        window.rumble = band(power, kRumbleFrom_hz, kRumbleTo_hz, bin_hz);
        window.voice = band(power, kVoiceLowFrom_hz, kVoiceLowTo_hz, bin_hz);
        for (std::size_t mains = 0; mains < kMains_hz.size(); ++mains) {
            for (int harmonic = 1; harmonic <= kHarmonics; ++harmonic) {
                const double line_hz = harmonic * kMains_hz[mains];
                // Two bins to each side: the main lobe of the window.
                const double wide = 2 * bin_hz;
                window.hum[mains] += band(power, line_hz - wide, line_hz + wide, bin_hz);
                window.beside[mains] +=
                    band(power, line_hz - kBesideTo_hz, line_hz - kBesideFrom_hz, bin_hz) +
                    band(power, line_hz + kBesideFrom_hz, line_hz + kBesideTo_hz, bin_hz);
            }
        }
        profile_.lows.push_back(window);
        ++low_windows_;
        for (std::vector<float>& plane : low_) {
            plane.erase(plane.begin(), plane.begin() + kLowStep);
        }
    }
}

}  // namespace quorvane
