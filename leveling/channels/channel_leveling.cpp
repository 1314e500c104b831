#include "leveling/channels/channel_leveling.h"

#include <fmt/format.h>

#include <algorithm>
#include <memory>
#include <utility>
#include <vector>

#include "Common/stream/pump.h"
#include "leveling/audio/portable_math.h"
#include "leveling/channels/voice_curve.h"
#include "leveling/conversation/plan.h"
#include "leveling/preparation/evenness.h"
#include "leveling/preparation/levels.h"
#include "leveling/preparation/rumble.h"
#include "leveling/preparation/sound_files.h"

namespace quorvane {
namespace {

constexpr double kWords_db = -16.8;  // as in a recording of one channel
constexpr double kAnalysed = 0.5;    // of the progress bar

/** Measures each channel by itself, and the sum of those that are no LFE. */
class ChannelAnalyser : public stream::Receiver {
  public:
    ChannelAnalyser(int channels, int sample_rate_hz, const ChannelLayout& layout)
        : channels_(static_cast<std::size_t>(channels)) {
        for (int i = 0; i < channels; ++i) {
            in_sum_.push_back(layout.downmix_weight(i));
        }
        for (std::size_t i = 0; i <= channels_; ++i) {  // the last one is the sum
            analysers_.emplace_back(1, sample_rate_hz,
                                    std::vector<Section>{gentle_high_pass(sample_rate_hz)});
        }
    }

    void process(double* samples, long long frames) override {
        const auto count = static_cast<std::size_t>(frames);
        // One value a frame: all channels but the LFE, added.
        sum_.assign(count, 0.0);
        one_.resize(count);
        for (std::size_t channel = 0; channel < channels_; ++channel) {
            for (std::size_t i = 0; i < count; ++i) {
                one_[i] = samples[i * channels_ + channel];
                sum_[i] += in_sum_[channel] * one_[i];
            }
            analysers_[channel].process(one_.data(), frames);
        }
        analysers_[channels_].process(sum_.data(), frames);
    }

    void finish() override {
        for (LevelAnalyser& analyser : analysers_) {
            analyser.finish();
        }
    }

    /** Frames of one bin, the same in all channels. */
    long long bin_frames() const { return analysers_.front().bin_frames(); }

    /** Of one channel by itself. */
    BinLevels& levels(std::size_t channel) { return analysers_[channel].levels(); }

    /** Of all channels but the LFE, added. Its peaks are those of the sum. */
    BinLevels& sum() { return analysers_[channels_].levels(); }

    bool is_in_sum(std::size_t channel) const { return in_sum_[channel] > 0; }

  private:
    std::size_t channels_;
    std::vector<double> in_sum_;  // its weight there
    std::vector<LevelAnalyser> analysers_;
    std::vector<double> one_;
    std::vector<double> sum_;
};

/** What is done to one channel; without a curve it stays as it is, to the bit. */
struct ChannelGain {
    // dB, a value for each bin.
    std::vector<float> curve_db;
    std::vector<Section> high_pass;
};

/** Applies the gains while a file is read, in bins as CurveReader does. */
class ChannelRenderer {
  public:
    ChannelRenderer(const std::vector<ChannelGain>& gains, long long bin_frames)
        : gains_(gains), bin_frames_(bin_frames) {
        for (const ChannelGain& gain : gains) {
            filters_.emplace_back(gain.high_pass, 1);
            before_.push_back(amplitude(gain, 0));
        }
    }

    /** The next piece: half a bin at first, then bins. */
    void process(double* samples, long long frames) {
        const std::size_t channels = gains_.size();
        one_.resize(static_cast<std::size_t>(frames));
        for (std::size_t channel = 0; channel < channels; ++channel) {
            if (gains_[channel].curve_db.empty()) {
                continue;
            }
            for (std::size_t i = 0; i < one_.size(); ++i) {
                one_[i] = samples[i * channels + channel];
            }
            filters_[channel].process(one_.data(), frames);
            const double after = amplitude(gains_[channel], bin_);
            // A straight line in amplitudes between two bins; the first half bin has one gain.
            const double step =
                bin_ == 0 ? 0 : (after - before_[channel]) / static_cast<double>(bin_frames_);
            double gain = before_[channel];
            for (std::size_t i = 0; i < one_.size(); ++i) {
                samples[i * channels + channel] = one_[i] * gain;
                gain += step;
            }
            before_[channel] = after;
        }
        ++bin_;
    }

    /** How many frames the next call of process() gets. */
    long long next_frames() const { return bin_ == 0 ? bin_frames_ / 2 : bin_frames_; }

  private:
    /** The factor of a bin; behind the last one that of the last. */
    static double amplitude(const ChannelGain& gain, std::size_t bin) {
        return gain.curve_db.empty() ? 1
                                     : portable_amplitude(static_cast<double>(
                                           gain.curve_db[std::min(bin, gain.curve_db.size() - 1)]));
    }

    const std::vector<ChannelGain>& gains_;
    long long bin_frames_;
    std::vector<FilterChain> filters_;
    std::vector<double> before_;
    std::vector<double> one_;
    std::size_t bin_ = 0;
};

/** The leveling of one file: it is read once to measure and once to render. */
class ChannelRun {
  public:
    ChannelRun(const PreparedRun& run,
               const ChannelLayout& layout,
               std::optional<ChannelUse> use,
               const std::function<void(double)>& progress)
        : run_(run),
          progress_(progress),
          layout_(layout),
          info_(InputFile(run.recording).info()),
          analyser_(info_.channels, info_.samplerate, layout_),
          gains_(static_cast<std::size_t>(info_.channels)),
          use_(use) {}

    /** Throws std::runtime_error. Without speech the result has a cause and no file is written. */
    PreparedResult go() {
        InputFile file(run_.recording);
        stream::pump(file.source(), analyser_, stream::kToTheEnd);
        progress_(kAnalysed);
        if (!use_) {
            choose();
        }
        const bool found = *use_ == ChannelUse::Tracks     ? level_tracks()
                           : *use_ == ChannelUse::Dialogue ? level_dialogue()
                           : *use_ == ChannelUse::Curve    ? level_as_one()
                                                           : level_each();
        if (!found) {
            result_.cause = "no speech was found in it";
            return result_;
        }
        render();
        result_.leveled = true;
        result_.preparation = facts_;
        return result_;
    }

  private:
    double bin_s() const { return static_cast<double>(analyser_.bin_frames()) / info_.samplerate; }

    /** Each channel, taken for the track of one voice. */
    std::vector<TrackPlan> planned_tracks() {
        std::vector<MeasuredTrack> measured;
        for (std::size_t i = 0; i < gains_.size(); ++i) {
            measured.push_back({&analyser_.levels(i), bin_s()});
        }
        return plan_tracks(measured);
    }

    /** What the metadata say comes first, then where the speech is, then who takes turns. */
    void choose() {
        const int centre = layout_.centre();
        const bool named = centre >= 0 || !layout_.map.empty();
        // Several voices in channels without a named place: each has a microphone.
        if (!layout_.is_scene && (layout_.is_poly || (!named && voices() > 1))) {
            use_ = ChannelUse::Tracks;
        } else if (!layout_.is_scene && centre >= 0 && speaks(centre)) {
            use_ = ChannelUse::Dialogue;
        } else {
            use_ = ChannelUse::Curve;
        }
    }

    bool speaks(int channel) {
        return voice_curve(analyser_.levels(static_cast<std::size_t>(channel)), {}).has_speech();
    }

    /** How many channels hold a voice of their own. */
    std::ptrdiff_t voices() {
        const std::vector<TrackPlan> plans = planned_tracks();
        return std::count_if(plans.begin(), plans.end(),
                             [](const TrackPlan& plan) { return !plan.is_silent(); });
    }

    /** False where no channel has speech. The facts are those of the first channel with a voice. */
    bool level_tracks() {
        std::vector<TrackPlan> plans = planned_tracks();
        std::size_t voices = 0;
        std::size_t first = gains_.size();
        for (std::size_t i = 0; i < plans.size(); ++i) {
            gains_[i] = {plans[i].curve_db, {gentle_high_pass(info_.samplerate)}};
            if (!plans[i].is_silent()) {
                ++voices;
                first = std::min(first, i);
            }
        }
        if (voices == 0) {
            return false;
        }
        result_.leveling = leveling_of_phrases(plans[first].speech.phrases, gains_[first].curve_db);
        facts_.phrases = static_cast<int>(plans[first].speech.phrases.phrases.size());
        facts_.background_under_speech_db =
            background_under(plans[first].speech.phrases, analyser_.levels(first).weighted_db, {});
        result_.note = fmt::format(
            "its {} channels are the tracks of a conversation, {} of them "
            "with a voice{}",
            gains_.size(), voices, names_text());
        return true;
    }

    /** " (Boom, Anna, Ben)". */
    std::string names_text() const {
        std::string text;
        for (const std::string& name : layout_.names) {
            text += (text.empty() ? "" : ", ") + (name.empty() ? std::string("unnamed") : name);
        }
        return text.empty() ? "" : " (" + text + ")";
    }

    /** The facts that the report shows, of the voice that was leveled. */
    void take_facts(const VoiceCurve& voice, const BinLevels& levels) {
        result_.leveling = leveling_of_phrases(voice.phrases, voice.curve_db);
        facts_.phrases = static_cast<int>(voice.phrases.phrases.size());
        facts_.background_under_speech_db = background_under(voice.phrases, levels.weighted_db, {});
    }

    /** Throws std::runtime_error without a centre channel; false where it has no speech. */
    bool level_dialogue() {
        const int centre = layout_.centre();
        if (centre < 0) {
            throw std::runtime_error(
                "it has no centre channel with the dialogue; --channels curve, tracks or each "
                "levels it");
        }
        const BinLevels& levels = analyser_.levels(static_cast<std::size_t>(centre));
        VoiceCurve voice = voice_curve(levels, std::nullopt);
        if (!voice.has_speech()) {
            return false;
        }
        take_facts(voice, levels);
        gains_[static_cast<std::size_t>(centre)].curve_db = std::move(voice.curve_db);
        result_.note = fmt::format(
            "the dialogue in its centre channel was leveled; its other {} "
            "channels are as they were",
            gains_.size() - 1);
        return true;
    }

    /** One gain for all channels but the LFE, from their sum; false where that has no speech. */
    bool level_as_one() {
        BinLevels& levels = analyser_.sum();
        // What may not pass the ceiling is each channel, not the sum.
        std::fill(levels.peak.begin(), levels.peak.end(), 0.0F);
        for (std::size_t i = 0; i < gains_.size(); ++i) {
            const std::vector<float>& peaks = analyser_.levels(i).peak;
            for (std::size_t bin = 0; analyser_.is_in_sum(i) && bin < peaks.size(); ++bin) {
                levels.peak[bin] = std::max(levels.peak[bin], peaks[bin]);
            }
        }
        const VoiceCurve voice = voice_curve(levels, std::nullopt);
        if (!voice.has_speech()) {
            return false;
        }
        take_facts(voice, levels);
        for (std::size_t i = 0; i < gains_.size(); ++i) {
            if (analyser_.is_in_sum(i)) {
                gains_[i].curve_db = voice.curve_db;
            }
        }
        result_.note = fmt::format("one gain was used for all of its {} channels{}", gains_.size(),
                                   has_lfe() ? " but the LFE" : "");
        return true;
    }

    bool has_lfe() const {
        for (std::size_t i = 0; i < gains_.size(); ++i) {
            if (!analyser_.is_in_sum(i)) {
                return true;
            }
        }
        return false;
    }

    /** False where no channel has speech; one without it stays as it is. */
    bool level_each() {
        std::size_t leveled = 0;
        for (std::size_t i = 0; i < gains_.size(); ++i) {
            const VoiceCurve voice = voice_curve(analyser_.levels(i), kWords_db);
            if (!voice.has_speech()) {
                continue;
            }
            if (leveled++ == 0) {
                take_facts(voice, analyser_.levels(i));
            }
            gains_[i] = {voice.curve_db, {gentle_high_pass(info_.samplerate)}};
        }
        result_.note = fmt::format(
            "each of its {} channels was leveled by itself, {} without "
            "speech are as they were",
            gains_.size(), gains_.size() - leveled);
        return leveled > 0;
    }

    /** Reads the recording again and writes it with the gains. Throws std::runtime_error. */
    void render() {
        InputFile in(run_.recording);
        in.source().announce(in.info().frames);
        // 0 stands for the recording's own format.
        const int format = run_.format != 0 ? run_.format : info_.format;
        OutputFile out(run_.output, format, info_.channels, info_.samplerate);
        out.set_channel_map(layout_.map);
        // No gain: no dither either, so that the samples stay exact.
        for (std::size_t i = 0; i < gains_.size(); ++i) {
            if (gains_[i].curve_db.empty()) {
                out.keep_exact(static_cast<int>(i));
            }
        }
        facts_.dithered = out.is_dithered();
        ChannelRenderer renderer(gains_, analyser_.bin_frames());
        const auto channels = static_cast<std::size_t>(info_.channels);
        std::vector<double> original(static_cast<std::size_t>(analyser_.bin_frames()) * channels);
        std::vector<double> result;
        double done = 0;
        for (;;) {
            const long long frames = in.source().read(original.data(), renderer.next_frames());
            if (frames <= 0) {
                break;
            }
            result.assign(original.begin(),
                          original.begin() + static_cast<std::ptrdiff_t>(frames) * info_.channels);
            renderer.process(result.data(), frames);
            out.take(result.data(), original.data(), frames);
            done += static_cast<double>(frames);
            progress_(kAnalysed + (1 - kAnalysed) * done /
                                      static_cast<double>(std::max<sf_count_t>(1, info_.frames)));
        }
        out.finish();
        // The library wrote a place for each channel, which the input leaves open.
        if (layout_.is_unnamed) {
            clear_mask(run_.output);
        }
    }

    const PreparedRun& run_;
    const std::function<void(double)>& progress_;
    ChannelLayout layout_;
    SF_INFO info_;
    ChannelAnalyser analyser_;
    std::vector<ChannelGain> gains_;
    std::optional<ChannelUse> use_;
    PreparedResult result_;
    Preparation facts_;
};

}  // namespace

PreparedResult level_channels(const PreparedRun& run,
                              const ChannelLayout& layout,
                              std::optional<ChannelUse> use,
                              const std::function<void(double)>& progress) {
    return ChannelRun(run, layout, use, progress).go();
}

}  // namespace quorvane
