#include "cli/audio/measure.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <deque>
#include <numeric>
#include <stdexcept>
#include <utility>
#include <vector>

#include "Common/audio/sound_handle.h"
#include "Common/stream/sound_source.h"
#include "cli/audio/loudness_meter.h"
#include "cli/audio/sample_sums.h"
#include "cli/audio/sound_file.h"
#include "cli/audio/true_peak.h"

namespace cli {
namespace {

constexpr double kShortTermSeconds = 3.0;
constexpr double kLeastStepSeconds = 0.1;
constexpr double kMostPoints = 1000;
constexpr std::size_t kBlockSamples = 32768;
constexpr std::size_t kPauseBlocks = 5;  // of kLeastStepSeconds: half a second
constexpr double kSoundDbfs = -50;       // RMS of a block that is more than room tone

double power_to_db(double power) {
    return 10 * std::log10(power);  // minus infinity for 0
}

double amplitude_to_db(double amplitude) {
    return 20 * std::log10(amplitude);
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

/** The frames that a point of the curve tells of. */
struct Window {
    std::int64_t begin;
    std::int64_t end;
};

/** One window for each point, centred on its time and cut off at the file's ends. */
std::vector<Window> curve_windows(std::int64_t frames, int rate_hz, double step_s) {
    const double duration = static_cast<double>(frames) / rate_hz;
    std::vector<Window> windows;
    for (std::size_t i = 0; static_cast<double>(i) * step_s <= duration && frames > 0; ++i) {
        const double centre = static_cast<double>(i) * step_s;
        const double end = std::min(duration, centre + kShortTermSeconds / 2);
        const double start = std::max(0.0, centre - kShortTermSeconds / 2);
        const auto last = static_cast<std::int64_t>(end * rate_hz);
        // In whole milliseconds.
        const std::int64_t length =
            rate_hz * static_cast<std::int64_t>((end - start) * 1000) / 1000;
        windows.push_back({std::max<std::int64_t>(last - length, 0), last});
    }
    return windows;
}

/** The last 400 ms, which need not end with a block. */
Window last_moment(std::int64_t frames, int rate_hz) {
    return {frames - LoudnessMeter::block_frames(rate_hz), frames};
}

/** Where windows begin and end. */
std::vector<std::int64_t> cuts_of(const std::vector<Window>& windows, const Window& last) {
    std::vector<std::int64_t> cuts = {std::max<std::int64_t>(last.begin, 0), last.end};
    for (const Window& window : windows) {
        cuts.push_back(window.begin);
        cuts.push_back(window.end);
    }
    std::sort(cuts.begin(), cuts.end());
    cuts.erase(std::unique(cuts.begin(), cuts.end()), cuts.end());
    return cuts;
}

SF_INFO info_of(const SndfileHandle& file) {
    SF_INFO info{};
    info.frames = file.frames();
    info.samplerate = file.samplerate();
    info.channels = file.channels();
    info.format = file.format();
    return info;
}

/**
 * Reads through the engine's source, which moves plain samples in large blocks. The file is opened
 * here, since measurements run beside the engine, and opening as the steps do is not for two
 * threads.
 */
class FileMeter {
  public:
    explicit FileMeter(const std::string& path)
        : file_(open_to_read(path)),
          frames_(file_.frames()),
          step_s_(std::max(kLeastStepSeconds,
                           static_cast<double>(frames_) / file_.samplerate() / kMostPoints)),
          windows_(curve_windows(frames_, file_.samplerate(), step_s_)),
          last_moment_(last_moment(frames_, file_.samplerate())),
          power_(std::max(file_.channels(), 1), file_.samplerate() / 10),
          peaks_(file_.channels(), file_.samplerate()),
          loudness_(file_.channels(), file_.samplerate(), cuts_of(windows_, last_moment_)),
          source_(SoundHandle(file_.rawHandle(), [](SNDFILE* /*kept by file_*/) {}),
                  path,
                  info_of(file_),
                  fail_read),
          block_(kBlockSamples + static_cast<std::size_t>(file_.channels())),
          buffer_(block_.size()) {}

    Loudness run(const std::function<void(double)>& progress) {
        while (done_ < frames_) {
            read_block();
            progress(static_cast<double>(done_) / static_cast<double>(frames_));
        }
        return result();
    }

  private:
    void read_block() {
        const long long most =
            static_cast<long long>(block_.size()) / std::max(file_.channels(), 1);
        const long long got =
            source_.read(block_.data(), std::min<long long>(frames_ - done_, most));
        if (got <= 0) {
            throw std::runtime_error(
                fmt::format("ends after {} of {} frames; the file may be damaged", done_, frames_));
        }
        const auto frames = static_cast<std::size_t>(got);
        // The meters take floats, twice as many at a time.
        std::transform(block_.begin(),
                       block_.begin() + static_cast<std::ptrdiff_t>(got * file_.channels()),
                       buffer_.begin(), [](double sample) { return static_cast<float>(sample); });
        power_.add(buffer_.data(), frames * static_cast<std::size_t>(file_.channels()));
        loudness_.add(buffer_.data(), frames);
        peaks_.add(buffer_.data(), frames);
        done_ += got;
    }

    Loudness result() const {
        Loudness result;
        result.integrated_lufs = loudness_.integrated_lufs();
        result.range_lu = loudness_.range_lu();
        result.true_peak_dbtp = amplitude_to_db(peaks_.true_peak());
        result.sample_peak_dbfs = amplitude_to_db(peaks_.sample_peak());
        result.rms_dbfs = power_.rms_db();
        result.pauses_dbfs = power_.quietest_db();
        result.head_s = kLeastStepSeconds * static_cast<double>(power_.quiet_blocks_at_head());
        result.tail_s = kLeastStepSeconds * static_cast<double>(power_.quiet_blocks_at_tail());
        result.greatest_momentary_lufs =
            std::max(loudness_.greatest_momentary_lufs(),
                     loudness_.window_lufs(last_moment_.begin, last_moment_.end));
        result.short_term_lufs.step_s = step_s_;
        for (const Window& window : windows_) {
            result.short_term_lufs.values.push_back(
                loudness_.window_lufs(window.begin, window.end));
        }
        return result;
    }

    SndfileHandle file_;
    sf_count_t frames_;
    double step_s_;
    std::vector<Window> windows_;
    Window last_moment_;
    PowerMeter power_;
    TruePeakMeter peaks_;
    LoudnessMeter loudness_;
    SoundSource source_;
    std::vector<double> block_;
    std::vector<float> buffer_;
    sf_count_t done_ = 0;
};

}  // namespace

Loudness measure(const std::string& path, const std::function<void(double)>& progress) {
    return FileMeter(path).run(progress);
}

}  // namespace cli
