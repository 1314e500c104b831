#include "leveling/conversation/aligned_reader.h"

#include <algorithm>
#include <cmath>

#include "leveling/preparation/sound_files.h"
#include "leveling/publish/sinc.h"

namespace quorvane {
namespace {

constexpr long long kTaps = 48;
constexpr long long kBefore = kTaps / 2 - 1;  // taps up to the frame before the point
constexpr std::size_t kFractions = 512;       // between them weights are interpolated: 1e-5
constexpr long long kKept = 1 << 15;          // frames, before what is done is dropped

}  // namespace

AlignedReader::AlignedReader(const std::string& recording,
                             const std::vector<Section>& high_pass,
                             std::vector<float> curve_db,
                             long long bin_frames,
                             const TrackTime& time)
    : reader_(recording, high_pass, std::move(curve_db), bin_frames),
      channels_(InputFile(recording).info().channels),
      time_(time),
      begin_frame_(time.begin_s * InputFile(recording).info().samplerate) {
    if (time_.speed == 1) {
        begin_frame_ = std::round(begin_frame_);  // to a whole frame, which keeps every sample
        return;
    }
    for (std::size_t i = 0; i <= kFractions; ++i) {
        weights_.push_back(sinc_weights(static_cast<double>(i) / kFractions, kTaps));
    }
}

/** Reads until the frame is there; false where the track ends before it. */
bool AlignedReader::fill(long long until) {
    while (end_ <= until && !ended_) {
        const long long frames = reader_.next();
        ended_ = frames == 0;
        buffer_.insert(buffer_.end(), reader_.result(), reader_.result() + frames * channels_);
        end_ += frames;
    }
    return end_ > until;
}

void AlignedReader::drop(long long before) {
    if (before - first_ > kKept) {
        buffer_.erase(buffer_.begin(), buffer_.begin() + (before - first_) * channels_);
        first_ = before;
    }
}

void AlignedReader::interpolate(double own_frame, double* to) const {
    const double floor = std::floor(own_frame);
    const double place = (own_frame - floor) * kFractions;
    const auto row = static_cast<std::size_t>(place);
    const double way = place - static_cast<double>(row);
    const std::vector<double>& low = weights_[row];
    const std::vector<double>& high = weights_[std::min(row + 1, kFractions)];
    const long long begin = static_cast<long long>(floor) - kBefore;
    std::fill(to, to + channels_, 0.0);
    for (long long tap = std::max(0LL, first_ - begin); tap < kTaps; ++tap) {
        const long long frame = begin + tap;
        if (frame >= end_) {
            break;
        }
        const auto at = static_cast<std::size_t>(tap);
        const double weight = low[at] + (high[at] - low[at]) * way;
        for (int channel = 0; channel < channels_; ++channel) {
            to[channel] +=
                weight * buffer_[static_cast<std::size_t>((frame - first_) * channels_ + channel)];
        }
    }
}

long long AlignedReader::read(double* samples, long long frames) {
    for (long long i = 0; i < frames; ++i, ++at_) {
        double* const to = samples + i * channels_;
        const double own_frame = (static_cast<double>(at_) - begin_frame_) * time_.speed;
        const bool is_exact = weights_.empty();
        const auto whole = static_cast<long long>(std::floor(own_frame));
        if (own_frame < 0) {
            std::fill(to, to + channels_, 0.0);
            continue;
        }
        if (!fill(whole)) {
            return i;
        }
        if (is_exact) {
            std::copy_n(buffer_.begin() + (whole - first_) * channels_, channels_, to);
        } else {
            fill(whole + kTaps);
            interpolate(own_frame, to);
        }
        drop(whole - kTaps);
    }
    return frames;
}

}  // namespace quorvane
