#include "cli/audio/measure.h"

#include <ebur128.h>
#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <deque>
#include <limits>
#include <memory>
#include <numeric>
#include <stdexcept>

#include "cli/audio/sound_file.h"
#include "cli/audio/true_peak.h"

namespace cli {
namespace {

constexpr double kShortTermSeconds = 3.0;
constexpr double kLeastStepSeconds = 0.1;
constexpr double kMostPoints = 1000;
constexpr std::size_t kPauseBlocks = 5;  // of kLeastStepSeconds: half a second
constexpr double kSoundDbfs = -50;       // RMS of a block that is more than room tone

double power_to_db(double power) {
    return 10 * std::log10(power);  // minus infinity for 0
}

double amplitude_to_db(double amplitude) {
    return 20 * std::log10(amplitude);
}

/** Eight sums side by side, which do not wait for each other. */
double sum_of_squares(const float* samples, std::size_t count) {
    constexpr std::size_t kSums = 8;
    double sums[kSums] = {};
    std::size_t i = 0;
    for (; i + kSums <= count; i += kSums) {
        for (std::size_t k = 0; k < kSums; ++k) {
            const double sample = static_cast<double>(samples[i + k]);
            sums[k] += sample * sample;
        }
    }
    for (; i < count; ++i) {
        sums[0] += static_cast<double>(samples[i]) * static_cast<double>(samples[i]);
    }
    return std::accumulate(std::begin(sums), std::end(sums), 0.0);
}

/**
 * Mean square of the whole file and of its quietest half second, and the quiet at its ends, from
 * blocks of 100 ms.
 */
class PowerMeter {
  public:
    PowerMeter(int channels, sf_count_t block_frames)
        : block_samples_(static_cast<std::size_t>(std::max<sf_count_t>(block_frames, 1)) *
                         static_cast<std::size_t>(channels)) {}

    void add(const float* samples, std::size_t count) {
        while (count > 0) {
            const std::size_t here = std::min(count, block_samples_ - in_block_);
            block_ += sum_of_squares(samples, here);
            in_block_ += here;
            if (in_block_ == block_samples_) {
                finish_block();
            }
            samples += here;
            count -= here;
        }
    }

    double rms_db() const {
        const double samples = static_cast<double>(blocks_) * static_cast<double>(block_samples_) +
                               static_cast<double>(in_block_);
        return samples > 0 ? power_to_db((total_ + block_) / samples) : power_to_db(0);
    }

    /** The blocks before the first and after the last one with a sound in it. */
    std::size_t quiet_blocks_at_head() const { return head_; }

    std::size_t quiet_blocks_at_tail() const { return tail_; }

    double quietest_db() const { return quietest_ < 0 ? rms_db() : power_to_db(quietest_); }

  private:
    void finish_block() {
        total_ += block_;
        ++blocks_;
        const bool sound = power_to_db(block_ / static_cast<double>(block_samples_)) > kSoundDbfs;
        tail_ = sound ? 0 : tail_ + 1;
        if (tail_ == blocks_) {
            head_ = blocks_;
        }
        recent_.push_back(block_);
        if (recent_.size() > kPauseBlocks) {
            recent_.pop_front();
        }
        if (recent_.size() == kPauseBlocks) {
            const double power =
                std::accumulate(recent_.begin(), recent_.end(), 0.0) /
                (static_cast<double>(kPauseBlocks) * static_cast<double>(block_samples_));
            if (quietest_ < 0 || power < quietest_) {
                quietest_ = power;
            }
        }
        block_ = 0;
        in_block_ = 0;
    }

    const std::size_t block_samples_;
    std::size_t in_block_ = 0;
    std::size_t blocks_ = 0;
    std::size_t head_ = 0;
    std::size_t tail_ = 0;
    double block_ = 0;
    double total_ = 0;
    double quietest_ = -1;  // none yet
    std::deque<double> recent_;
};

class FileMeter {
  public:
    explicit FileMeter(const std::string& path)
        : file_(open_to_read(path)),
          power_(std::max(file_.channels(), 1), file_.samplerate() / 10),
          meter_(make_loudness_meter(file_.channels(),
                                     file_.samplerate(),
                                     EBUR128_MODE_I | EBUR128_MODE_LRA | EBUR128_MODE_S)),
          peaks_(file_.channels(), file_.samplerate()) {
        frames_ = file_.frames();
        buffer_.resize(static_cast<std::size_t>(file_.samplerate()) *
                       static_cast<std::size_t>(file_.channels()));
    }

    Loudness run(const std::function<void(double)>& progress) {
        Loudness result;
        const double rate = file_.samplerate();
        const double duration = static_cast<double>(frames_) / rate;
        Curve& curve = result.short_term_lufs;
        curve.step_s = std::max(kLeastStepSeconds, duration / kMostPoints);
        for (std::size_t i = 0; double(i) * curve.step_s <= duration && frames_ > 0; ++i) {
            const double centre = static_cast<double>(i) * curve.step_s;
            const double end = std::min(duration, centre + kShortTermSeconds / 2);
            const double start = std::max(0.0, centre - kShortTermSeconds / 2);
            read_to(sf_count_t(end * rate));
            curve.values.push_back(window(end - start));
            progress(static_cast<double>(done_) / static_cast<double>(frames_));
        }
        read_to(frames_);
        fill(result);
        return result;
    }

  private:
    void read_to(sf_count_t frame) {
        while (done_ < frame) {
            const sf_count_t wanted = std::min<sf_count_t>(frame - done_, file_.samplerate());
            const sf_count_t got = file_.readf(buffer_.data(), wanted);
            if (got <= 0) {
                if (file_.error()) {
                    throw std::runtime_error(file_.strError());
                }
                throw std::runtime_error(fmt::format(
                    "ends after {} of {} frames; the file may be damaged", done_, frames_));
            }
            power_.add(buffer_.data(),
                       static_cast<std::size_t>(got) * static_cast<std::size_t>(file_.channels()));
            if (ebur128_add_frames_float(meter_.get(), buffer_.data(),
                                         static_cast<std::size_t>(got))) {
                throw std::runtime_error("not enough memory to measure the loudness");
            }
            peaks_.add(buffer_.data(), static_cast<std::size_t>(got));
            done_ += got;
        }
    }

    double window(double seconds) const {
        double loudness = -std::numeric_limits<double>::infinity();
        ebur128_loudness_window(meter_.get(), static_cast<unsigned long>(seconds * 1000),
                                &loudness);
        return loudness;
    }

    void fill(Loudness& result) const {
        ebur128_loudness_global(meter_.get(), &result.integrated_lufs);
        ebur128_loudness_range(meter_.get(), &result.range_lu);
        result.true_peak_dbtp = amplitude_to_db(peaks_.true_peak());
        result.sample_peak_dbfs = amplitude_to_db(peaks_.sample_peak());
        result.rms_dbfs = power_.rms_db();
        result.pauses_dbfs = power_.quietest_db();
        result.head_s = kLeastStepSeconds * static_cast<double>(power_.quiet_blocks_at_head());
        result.tail_s = kLeastStepSeconds * static_cast<double>(power_.quiet_blocks_at_tail());
    }

    mutable SndfileHandle file_;
    PowerMeter power_;
    LoudnessMeter meter_;
    TruePeakMeter peaks_;
    sf_count_t frames_ = 0;
    sf_count_t done_ = 0;
    std::vector<float> buffer_;
};

}  // namespace

Loudness measure(const std::string& path, const std::function<void(double)>& progress) {
    return FileMeter(path).run(progress);
}

}  // namespace cli
