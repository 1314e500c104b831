#include "leveling/audio/measure.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <numeric>
#include <optional>
#include <stdexcept>
#include <utility>
#include <vector>

#include "Common/audio/sound_handle.h"
#include "Common/audio/wide_loops.h"
#include "Common/stream/sound_source.h"
#include "leveling/audio/channel_places.h"
#include "leveling/audio/loudness_meter.h"
#include "leveling/audio/peak_curve.h"
#include "leveling/audio/power_meter.h"
#include "leveling/audio/sound_file.h"
#include "leveling/audio/true_peak.h"

namespace quorvane {
namespace {

// Of the report's curve: EBU R 128's short-term loudness.
constexpr double kShortTermSeconds = 3.0;
// The least step of a curve; it grows with the length, so that there are at most kMostPoints.
constexpr double kLeastStepSeconds = 0.1;
constexpr double kMostPoints = 1000;
// So few that a piece stays in the processor's first cache.
constexpr std::size_t kPieceFrames = 1024;
constexpr std::int64_t kBlockSeconds = 4;   // that the loudness meter takes as two runs
constexpr std::int64_t kSettleSeconds = 1;  // four times what the loudness meter's filters need
// Shorter halves do not repay a second thread.
constexpr std::int64_t kLeastHalfSeconds = 15;

/** -infinity for silence. */
double amplitude_to_db(double amplitude) {
    return 20 * std::log10(amplitude);
}

QUORVANE_WIDE_LOOP void to_floats(const double* samples, std::size_t count, float* floats) {
    for (std::size_t i = 0; i < count; ++i) {
        floats[i] = static_cast<float>(samples[i]);
    }
}

/** The frames that one point of the curve covers. */
struct Window {
    std::int64_t begin;
    std::int64_t end;
};

/** One window for each point, centred on its time and cut off at the file's ends. */
std::vector<Window> curve_windows(std::int64_t frames, int rate_hz, double step_s) {
    const double duration = static_cast<double>(frames) / rate_hz;
    std::vector<Window> windows;
    // A file without frames has no windows.
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

/**
 * Meters over one half of a file, or all of it. Reads through the engine's source, which moves
 * plain samples in large blocks. The file is opened here, since measurements run beside the engine,
 * and opening as the steps do is not for two threads.
 */
class HalfMeter {
  public:
    /** The frames `begin` up to, but without, `end` of an open file that no one else uses. */
    HalfMeter(const SndfileHandle& file,
              std::int64_t begin,
              std::int64_t end,
              const std::vector<std::int64_t>& cuts,
              FrameObserver* observer)
        : file_(file),
          observer_(observer),
          channels_(static_cast<std::size_t>(file_.channels())),
          done_(begin),
          end_(end),
          power_(file_.channels(), file_.samplerate()),
          peaks_(file_.channels(), file_.samplerate()),
          loudness_(file_.channels(), file_.samplerate(), cuts, begin, loudness_weights(file_)),
          outline_(file_.channels(), file_.samplerate(), file_.frames(), begin),
          source_(SoundHandle(file_.rawHandle(), [](SNDFILE* /*kept by file_*/) {}),
                  "",  // fail_read does not name the file
                  info_of(file_),
                  fail_read),
          // Empty where the source gives samples and no bytes.
          bytes_(static_cast<std::size_t>(
              source_.gives_bytes() ? kReadFrames * source_.frame_bytes() : 0)),
          samples_(kPieceFrames * channels_),
          block_(
              static_cast<std::size_t>(std::min(kBlockSeconds * file_.samplerate(), end - begin)) *
              channels_) {}

    /** progress is called with the frames that were read. */
    void run(const std::function<void(std::int64_t)>& progress) {
        settle();
        if (observer_ != nullptr) {
            observer_->begin(file_.channels(), file_.samplerate());
        }
        while (done_ < end_) {
            const std::size_t frames =
                read_block(end_, [&](const float* samples, std::size_t count) {
                    power_.add(samples, count * channels_);
                    peaks_.add(samples, count);
                    outline_.add(samples, count);
                    if (observer_ != nullptr) {
                        observer_->add(samples, count);
                    }
                });
            loudness_.add(block_.data(), frames);
            progress(static_cast<std::int64_t>(frames));
        }
    }

    /** Puts the results of the next half behind those of this one. */
    void append(const HalfMeter& next) {
        power_.append(next.power_);
        peaks_.append(next.peaks_);
        loudness_.append(next.loudness_);
        outline_.append(next.outline_);
        done_ = next.done_;
    }

    const PowerMeter& power() const { return power_; }

    const TruePeakMeter& peaks() const { return peaks_; }

    const LoudnessMeter& loudness() const { return loudness_; }

    const PeakCurve& outline() const { return outline_; }

    /** The frame behind the last one that was read. */
    std::int64_t end() const { return done_; }

  private:
    /** Lets the filters hear what comes before the half. */
    void settle() {
        const std::int64_t begin = done_;
        if (begin == 0) {
            return;
        }
        done_ = std::max<std::int64_t>(begin - kSettleSeconds * file_.samplerate(), 0);
        if (!source_.seek(done_)) {
            throw std::runtime_error("cannot be read from its middle");
        }
        while (done_ < begin) {
            // A peak may count twice.
            const std::size_t frames = read_block(
                begin,
                [&](const float* samples, std::size_t count) { peaks_.add(samples, count); });
            loudness_.settle(block_.data(), frames);
        }
    }

    /**
     * Reads a block, not beyond the frame `end`, and returns its frames. take gets it in pieces,
     * each while it is in the processor's first cache. The meters take floats, twice as many at a
     * time as doubles.
     */
    template <class Take>
    std::size_t read_block(std::int64_t end, const Take& take) {
        const std::size_t frames =
            std::min(static_cast<std::size_t>(end - done_), block_.size() / channels_);
        for (std::size_t got = 0; got < frames;) {
            const std::size_t here = read_piece(std::min(frames - got, kPieceFrames));
            float* const piece = block_.data() + got * channels_;
            to_floats(samples_.data(), here * channels_, piece);
            take(piece, here);
            got += here;
        }
        done_ += static_cast<std::int64_t>(frames);
        return frames;
    }

    /** Samples of at most so many frames. */
    std::size_t read_piece(std::size_t frames) {
        auto got = static_cast<long long>(frames);
        if (!source_.gives_bytes()) {
            got = source_.read(samples_.data(), got);
        } else {
            // Bytes are read in large blocks and decoded in small pieces.
            if (unread_ == 0) {
                unread_ = source_.read_bytes(bytes_.data(),
                                             std::min(end_ - source_.position(), kReadFrames));
                next_ = bytes_.data();
            }
            got = std::min(got, unread_);
            source_.decode(next_, samples_.data(), got);
            next_ += got * source_.frame_bytes();
            unread_ -= got;
        }
        // The header promises more frames than there are.
        if (got <= 0) {
            throw std::runtime_error(
                fmt::format("ends after {} of {} frames; the file may be damaged",
                            source_.position(), file_.frames()));
        }
        return static_cast<std::size_t>(got);
    }

    SndfileHandle file_;
    FrameObserver* observer_;
    std::size_t channels_;
    std::int64_t done_;
    std::int64_t end_;
    PowerMeter power_;
    TruePeakMeter peaks_;
    LoudnessMeter loudness_;
    PeakCurve outline_;
    SoundSource source_;
    std::vector<unsigned char> bytes_;
    unsigned char* next_ = nullptr;  // of bytes_, to be decoded
    long long unread_ = 0;           // frames there
    std::vector<double> samples_;
    std::vector<float> block_;
};

/**
 * The meters over the two halves of a file, which may run side by side: alone they would be as long
 * at work as half the engine. The halves are the same on one processor and on two, and so is the
 * result, to the bit.
 */
class FileMeter {
  public:
    explicit FileMeter(const OpenSound& open, Observers observers = {})
        : file_(open()),
          step_s_(std::max(kLeastStepSeconds,
                           static_cast<double>(file_.frames()) / file_.samplerate() / kMostPoints)),
          windows_(curve_windows(file_.frames(), file_.samplerate(), step_s_)),
          last_moment_(last_moment(file_.frames(), file_.samplerate())),
          cuts_(cuts_of(windows_, last_moment_)),
          middle_(middle_of(file_)),
          whole_(file_, 0, middle_, cuts_, observers.first) {
        if (middle_ < file_.frames()) {
            second_.emplace(open(), middle_, file_.frames(), cuts_, observers.second);
        }
    }

    /** progress is called with 0 to 1. Throws std::runtime_error where the file ends early. */
    Measurement run(const std::function<void(double)>& progress) {
        std::int64_t done = 0;
        const auto count = [&](std::int64_t frames) {
            done += frames;
            progress(static_cast<double>(done) / static_cast<double>(file_.frames()));
        };
        whole_.run(count);
        if (second_) {
            second_->run(count);
        }
        return result();
    }

    /** The second half in a thread of its own. The result is that of run(). */
    Measurement run_side_by_side() {
        const auto ignore = [](std::int64_t) {};
        std::future<void> second;
        if (second_) {
            second = std::async(std::launch::async, [&] { second_->run(ignore); });
        }
        whole_.run(ignore);
        if (second_) {
            // Also throws what the second half threw.
            second.get();
        }
        return result();
    }

  private:
    /**
     * Where the second half begins, at a border of both meters' blocks; the end where halves are
     * not worth their making, or where to find a place is to decode all before it.
     */
    static std::int64_t middle_of(const SndfileHandle& file) {
        const std::int64_t border = std::lcm(LoudnessMeter::stretch_frames(file.samplerate()),
                                             PowerMeter::block_frames(file.samplerate()));
        // Rounded down to the border.
        const std::int64_t middle = file.frames() / 2 / border * border;
        const bool is_worthwhile = SampleCodec::is_plain_in(file.format()) &&
                                   middle >= kLeastHalfSeconds * file.samplerate();
        return is_worthwhile ? middle : file.frames();
    }

    Measurement result() {
        if (second_) {
            whole_.append(*second_);
        }
        const PowerMeter& power = whole_.power();
        const TruePeakMeter& peaks = whole_.peaks();
        const LoudnessMeter& loudness = whole_.loudness();
        Measurement result;
        result.scan = {whole_.end(), peaks.sample_peak(), std::sqrt(power.mean_square()),
                       std::isfinite(power.mean_square())};
        Loudness& facts = result.loudness;
        facts.integrated_lufs = loudness.integrated_lufs();
        facts.range_lu = loudness.range_lu();
        facts.true_peak_dbtp = amplitude_to_db(peaks.true_peak());
        facts.sample_peak_dbfs = amplitude_to_db(peaks.sample_peak());
        facts.rms_dbfs = power.rms_db();
        facts.pauses_dbfs = power.quietest_db();
        // Quiet blocks are a tenth of a second long.
        facts.head_s = kLeastStepSeconds * static_cast<double>(power.quiet_blocks_at_head());
        facts.tail_s = kLeastStepSeconds * static_cast<double>(power.quiet_blocks_at_tail());
        // The meter's blocks may leave out the end of the file.
        facts.greatest_momentary_lufs =
            std::max(loudness.greatest_momentary_lufs(),
                     loudness.window_lufs(last_moment_.begin, last_moment_.end));
        facts.powers.step_s =
            static_cast<double>(LoudnessMeter::stretch_frames(file_.samplerate())) /
            file_.samplerate();
        facts.powers.values = loudness.stretch_powers();
        facts.peaks_dbfs = whole_.outline().dbfs();
        facts.short_term_lufs.step_s = step_s_;
        for (const Window& window : windows_) {
            facts.short_term_lufs.values.push_back(loudness.window_lufs(window.begin, window.end));
        }
        return result;
    }

    SndfileHandle file_;
    double step_s_;
    std::vector<Window> windows_;
    Window last_moment_;
    std::vector<std::int64_t> cuts_;
    std::int64_t middle_;
    HalfMeter whole_;  // of the first half, until the second's results are put behind its own
    std::optional<HalfMeter> second_;
};

OpenSound opener_of(const std::string& path) {
    return [&path] { return open_to_read(path); };
}

}  // namespace

Measurement measure(const std::string& path,
                    const std::function<void(double)>& progress,
                    Observers observers) {
    return FileMeter(opener_of(path), observers).run(progress);
}

Measurement measure(const OpenSound& open, const std::function<void(double)>& progress) {
    return FileMeter(open).run(progress);
}

std::future<Measurement> measure_meanwhile(const std::string& path, CallerThread caller) {
    return measure_meanwhile(opener_of(path), caller);
}

std::future<Measurement> measure_meanwhile(const OpenSound& open, CallerThread caller) {
    auto meter = std::make_unique<FileMeter>(open);
    return std::async(std::launch::async, [meter = std::move(meter), caller] {
        // A busy caller uses a processor of its own, so this is one thread more and not two.
        return caller == CallerThread::kBusy ? meter->run([](double) {})
                                             : meter->run_side_by_side();
    });
}

}  // namespace quorvane
