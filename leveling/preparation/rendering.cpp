#include "leveling/preparation/rendering.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "Common/units.h"
#include "leveling/audio/portable_math.h"
#include "leveling/audio/sound_file.h"

namespace quorvane {
namespace {

// Of leveled audio into a pause and out of it.
constexpr int kFade_ms = 300;
constexpr int kSettle_ms = 300;  // that the high-pass hears before its output counts

/** What a span of the output is made of. */
enum class Part {
    kLeveled,  // as the engine made it
    kSettle,   // likewise, while the high-pass settles
    kFadeOut,  // from the engine's to the pause
    kPause,
    kFadeIn
};

/** Frames of the recording, from begin up to end. */
struct Span {
    Part part;
    long long begin;
    long long end;
    double gain;  // of the pause
};

/** The recording cut into spans, in order and without a gap. */
std::vector<Span> spans_of(const Timeline& timeline,
                           const std::vector<double>& gains,
                           int rate_hz) {
    const long long fade = ms_to_frames(kFade_ms, rate_hz);
    const long long settle = ms_to_frames(kSettle_ms, rate_hz);
    std::vector<Span> spans;
    // A span without frames is left out.
    const auto add = [&](Part part, long long begin, long long end, double gain) {
        if (end > begin) {
            spans.push_back({part, begin, end, gain});
        }
    };
    std::size_t pause = 0;
    const std::vector<Stretch>& left_out = timeline.left_out();
    for (long long at = 0; at < timeline.frames();) {
        const long long end = pause < left_out.size() ? left_out[pause].begin : timeline.frames();
        // Leveled audio from here to the end, with a fade at each side where a pause is.
        // At most half of what lies between two pauses, so that both fades fit.
        const long long room = (end - at) / 2;
        const long long fade_in = pause > 0 ? std::min(fade, room) : 0;
        const long long fade_out = pause < left_out.size() ? std::min(fade, room) : 0;
        const long long fading = end - fade_out;
        // The filter starts before the fade, so that its transient is not heard.
        const long long settling = fade_out > 0 ? std::max(at + fade_in, fading - settle) : fading;
        add(Part::kFadeIn, at, at + fade_in, pause > 0 ? gains[pause - 1] : 0);
        add(Part::kLeveled, at + fade_in, settling, 0);
        add(Part::kSettle, settling, fading, 0);
        if (pause == left_out.size()) {
            break;
        }
        add(Part::kFadeOut, fading, end, gains[pause]);
        add(Part::kPause, end, left_out[pause].end, gains[pause]);
        at = left_out[pause].end;
        ++pause;
    }
    return spans;
}

/** Reads whole blocks and refuses files that end early. */
void read_all(InputFile& file, double* samples, long long frames) {
    if (file.source().read(samples, frames) != frames) {
        throw std::runtime_error("ends early; the file may be damaged");
    }
}

/** A gain that moves in straight lines between the middles of bins. */
class Trim {
  public:
    /** gain_db: a value for each bin; empty: samples stay as they are. */
    Trim(const std::vector<float>& gain_db, long long bin_frames)
        : bin_frames_(static_cast<double>(bin_frames)) {
        for (const float gain : gain_db) {
            gains_.push_back(quorvane::portable_amplitude(static_cast<double>(gain)));
        }
    }

    /** The next frames. */
    void process(double* samples, long long frames, long long channels) {
        for (long long i = 0; i < frames && !gains_.empty(); ++i) {
            const double gain = next();
            for (long long s = i * channels; s < (i + 1) * channels; ++s) {
                samples[s] *= gain;
            }
        }
    }

  private:
    /** The factor for the next frame. */
    double next() {
        // The frame's middle in bins, counted from the middle of the first bin.
        const double place = std::max(0.0, (static_cast<double>(at_) + 0.5) / bin_frames_ - 0.5);
        ++at_;
        const std::size_t last = gains_.size() - 1;
        const std::size_t bin = std::min(static_cast<std::size_t>(place), last);
        const double way = std::min(1.0, place - static_cast<double>(bin));
        return gains_[bin] + (gains_[std::min(bin + 1, last)] - gains_[bin]) * way;
    }

    std::vector<double> gains_;
    double bin_frames_;
    long long at_ = 0;
};

/** Reads the recording and the engine's result side by side and writes the output. */
class Renderer {
  public:
    Renderer(const Rendering& rendering, OutputFile& out)
        : recording_(rendering.recording),
          leveled_(rendering.leveled),
          channels_(recording_.info().channels),
          filter_(rendering.high_pass, recording_.info().channels),
          trim_(rendering.trim_db, rendering.bin_frames),
          out_(out),
          original_(static_cast<std::size_t>(kReadFrames * channels_)),
          pause_(original_.size()),
          result_(original_.size()) {
        recording_.source().announce(recording_.info().frames);
        leveled_.source().announce(leveled_.info().frames);
    }

    /** The spans must come in order and without a gap, as both files are read once. */
    void render(const Span& span) {
        for (long long at = span.begin; at < span.end;) {
            const long long frames = std::min(kReadFrames, span.end - at);
            render_block(span, at, frames);
            at += frames;
        }
    }

  private:
    void render_block(const Span& span, long long at, long long frames) {
        read_all(recording_, original_.data(), frames);
        // The engine's copy lacks the pauses, so nothing is read from it there.
        if (span.part != Part::kPause) {
            read_all(leveled_, result_.data(), frames);
            trim_.process(result_.data(), frames, channels_);
        }
        if (span.part == Part::kLeveled) {
            // The filter starts again before the next pause.
            is_settled_ = false;
        } else {
            filter(frames);
            mix(span, at, frames);
        }
        out_.take(result_.data(), original_.data(), frames);
    }

    /** The recording behind the high-pass, into pause_. */
    void filter(long long frames) {
        if (!is_settled_) {
            filter_.reset();
            is_settled_ = true;
        }
        std::copy_n(original_.begin(), frames * channels_, pause_.begin());
        filter_.process(pause_.data(), frames);
    }

    /** A linear fade between the leveled audio and the recording with the gain of the pause. */
    void mix(const Span& span, long long at, long long frames) {
        if (span.part == Part::kSettle) {
            return;
        }
        const auto length = static_cast<double>(span.end - span.begin);
        for (long long i = 0; i < frames; ++i) {
            // How far the frame's middle is through the span, 0 to 1.
            const double way = (static_cast<double>(at - span.begin + i) + 0.5) / length;
            const double share = span.part == Part::kPause     ? 1
                                 : span.part == Part::kFadeOut ? way
                                                               : 1 - way;
            for (long long s = i * channels_; s < (i + 1) * channels_; ++s) {
                const double leveled = span.part == Part::kPause ? 0 : result_[s];
                result_[s] = leveled * (1 - share) + pause_[s] * span.gain * share;
            }
        }
    }

    InputFile recording_;
    InputFile leveled_;
    long long channels_;
    FilterChain filter_;
    Trim trim_;
    bool is_settled_ = false;
    OutputFile& out_;
    std::vector<double> original_;
    std::vector<double> pause_;
    std::vector<double> result_;
};

}  // namespace

void render(const Rendering& rendering,
            const Timeline& timeline,
            OutputFile& out,
            const std::function<void(double)>& progress) {
    Renderer renderer(rendering, out);
    const int rate_hz = InputFile(rendering.recording).info().samplerate;
    for (const Span& span : spans_of(timeline, rendering.pause_gains, rate_hz)) {
        renderer.render(span);
        progress(static_cast<double>(span.end) / static_cast<double>(timeline.frames()));
    }
    out.finish();
}

CurveReader::CurveReader(const std::string& recording,
                         const std::vector<Section>& high_pass,
                         std::vector<float> curve_db,
                         long long bin_frames)
    : in_(recording),
      filter_(high_pass, in_.info().channels),
      curve_db_(std::move(curve_db)),
      bin_frames_(bin_frames),
      original_(static_cast<std::size_t>(bin_frames * in_.info().channels)),
      result_(original_.size()),
      gain_(quorvane::portable_amplitude(static_cast<double>(curve_db_.front()))) {
    in_.source().announce(in_.info().frames);
}

// From the middle of one bin to that of the next; the first piece ends in the first middle.
long long CurveReader::next() {
    // One piece more than bins, since the first piece is half a bin.
    if (bin_ > curve_db_.size()) {
        return 0;
    }
    const long long frames =
        in_.source().read(original_.data(), bin_ == 0 ? bin_frames_ / 2 : bin_frames_);
    if (frames <= 0) {
        return 0;
    }
    const double after = quorvane::portable_amplitude(
        static_cast<double>(curve_db_[std::min(bin_, curve_db_.size() - 1)]));
    // The change of the gain a frame; none up to the middle of the first bin.
    const double step = bin_ == 0 ? 0 : (after - gain_) / static_cast<double>(bin_frames_);
    filter_.process(original_.data(), result_.data(), frames, gain_, step);
    gain_ = after;
    ++bin_;
    return frames;
}

void CurveReader::swap_buffers(std::vector<double>& result, std::vector<double>& original) {
    const std::size_t size = result_.size();
    result_.swap(result);
    original_.swap(original);
    result_.resize(size);
    original_.resize(size);
}

void render_with_curve(const std::string& recording,
                       const std::vector<Section>& high_pass,
                       const std::vector<float>& curve_db,
                       long long bin_frames,
                       OutputFile& out,
                       const std::function<void(double)>& progress) {
    CurveReader reader(recording, high_pass, curve_db, bin_frames);
    double done = 0;
    for (long long frames = 0; (frames = reader.next()) > 0;) {
        out.take(reader.result(), reader.original(), frames);
        // Each piece stands for a bin, so their count is the progress.
        progress(done / static_cast<double>(curve_db.size()));
        done += 1;
    }
    out.finish();
}

void render_with_one_gain(const std::string& recording,
                          double gain,
                          OutputFile& out,
                          const std::function<void(double)>& progress) {
    InputFile in(recording);
    const auto channels = static_cast<std::size_t>(in.info().channels);
    std::vector<double> original(static_cast<std::size_t>(kReadFrames) * channels);
    std::vector<double> result(original.size());
    double done = 0;
    for (long long frames = 0; (frames = in.source().read(original.data(), kReadFrames)) > 0;) {
        const auto count = static_cast<std::size_t>(frames) * channels;
        std::transform(original.begin(), original.begin() + static_cast<std::ptrdiff_t>(count),
                       result.begin(), [gain](double sample) { return sample * gain; });
        out.take(result.data(), original.data(), frames);
        done += static_cast<double>(frames);
        progress(done / static_cast<double>(in.info().frames));
    }
    out.finish();
}

}  // namespace quorvane
