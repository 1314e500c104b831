#include "leveling/report/listen.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <exception>
#include <numeric>
#include <stdexcept>
#include <vector>

#include "Common/audio/wide_loops.h"
#include "Common/units.h"
#include "leveling/audio/loudness_meter.h"
#include "leveling/audio/sound_file.h"
#include "leveling/metadata/ogg_pages.h"
#include "leveling/publish/sinc.h"
#include "leveling/report/heard.h"
#include "leveling/words/text.h"

/*
 * Nine seconds of before and after, side by side in the page, so that everybody hears what the
 * numbers say. The louder of two always seems the better one: both are brought to the same
 * loudness, and one switch changes between them at the same moment of the recording. The sound is
 * in the page itself, as text: Opus at 32 kbit/s a channel, about 50 KB for a mono excerpt.
 */

namespace quorvane {
namespace {

constexpr double kSeconds = 9;
constexpr double kMostPeak = 0.89;                                // linear, -1 dBFS
constexpr double kBitsPerSecond = 32000;                          // a channel
constexpr int kOpusRates[] = {8000, 12000, 16000, 24000, 48000};  // Hz, all that the codec knows
constexpr std::uint32_t kSerial = 1;
constexpr std::size_t kResamplerTaps = 32;  // inaudible errors, and cheap for some seconds

/** Interleaved samples. */
struct Clip {
    int rate = 0;
    int channels = 0;
    std::vector<double> samples;
};

/** What there is of the nine seconds; throws where there is nothing. */
Clip read_clip(const std::string& path, double from_s) {
    SndfileHandle file = open_to_read(path);
    Clip clip{file.samplerate(), file.channels(), {}};
    file.seek(static_cast<sf_count_t>(from_s * clip.rate), SEEK_SET);
    clip.samples.resize(static_cast<std::size_t>(kSeconds * clip.rate) *
                        static_cast<std::size_t>(clip.channels));
    const sf_count_t got =
        file.readf(clip.samples.data(), static_cast<sf_count_t>(kSeconds * clip.rate));
    if (got <= 0) {
        throw std::runtime_error("nothing to hear");
    }
    clip.samples.resize(static_cast<std::size_t>(got) * static_cast<std::size_t>(clip.channels));
    return clip;
}

constexpr std::size_t kLanes = 8;

/** The sum of products of one frame's taps; eight sums, so that the order is that of a vector. */
inline float weighted(const float* weights, const float* samples) {
    float sums[kLanes] = {};
    for (std::size_t tap = 0; tap < kResamplerTaps; tap += kLanes) {
        for (std::size_t lane = 0; lane < kLanes; ++lane) {
            sums[lane] += weights[tap + lane] * samples[tap + lane];
        }
    }
    return ((sums[0] + sums[4]) + (sums[1] + sums[5])) +
           ((sums[2] + sums[6]) + (sums[3] + sums[7]));
}

/** From one rate to another, both divided by what they share. */
struct Ratio {
    std::size_t from;
    std::size_t to;
};

/** plane: the channel with kResamplerTaps of silence on both sides; weights: `to` rows of taps. */
QUORVANE_WIDE_LOOP
void resample(const float* plane,
              const float* weights,
              const Ratio& ratio,
              std::size_t count,
              double* to,
              std::size_t stride) {
    for (std::size_t frame = 0; frame < count; ++frame) {
        const std::size_t place = frame * ratio.from;
        // The taps lie around the new frame's place in the clip.
        const float* first = plane + place / ratio.to + kResamplerTaps / 2 + 1;
        to[frame * stride] =
            static_cast<double>(weighted(weights + place % ratio.to * kResamplerTaps, first));
    }
}

/** Rows of weights, one for each place that a new frame can have between two old ones. */
std::vector<float> weights_of(const Ratio& ratio) {
    // Of the clip's Nyquist frequency: lower where the new rate holds less than the old one.
    const double cutoff =
        std::min(1.0, static_cast<double>(ratio.to) / static_cast<double>(ratio.from));
    std::vector<float> weights;
    for (std::size_t row = 0; row < ratio.to; ++row) {
        const double fraction = static_cast<double>(row) / static_cast<double>(ratio.to);
        for (const double weight : sinc_weights(fraction, kResamplerTaps, cutoff)) {
            weights.push_back(static_cast<float>(weight));
        }
    }
    return weights;
}

/** The clip at a rate that Opus takes, the next higher one where there is one. */
Clip resampled(const Clip& clip) {
    int rate = 48000;
    for (int candidate : kOpusRates) {
        if (candidate >= clip.rate) {
            rate = candidate;
            break;
        }
    }
    if (rate == clip.rate) {
        return clip;
    }
    const int shared = std::gcd(rate, clip.rate);
    const Ratio ratio{static_cast<std::size_t>(clip.rate / shared),
                      static_cast<std::size_t>(rate / shared)};
    const auto channels = static_cast<std::size_t>(clip.channels);
    const std::size_t frames = clip.samples.size() / channels;
    const std::size_t count = (frames * ratio.to + ratio.from - 1) / ratio.from;
    const std::vector<float> weights = weights_of(ratio);
    std::vector<float> plane(frames + 2 * kResamplerTaps);
    Clip result{rate, clip.channels, std::vector<double>(count * channels)};
    for (std::size_t channel = 0; channel < channels; ++channel) {
        for (std::size_t i = 0; i < frames; ++i) {
            plane[kResamplerTaps + i] = static_cast<float>(clip.samples[i * channels + channel]);
        }
        resample(plane.data(), weights.data(), ratio, count, &result.samples[channel], channels);
    }
    return result;
}

/** LUFS; minus infinity for silence. */
double loudness_of(const Clip& clip) {
    LoudnessMeter meter(clip.channels, clip.rate);
    meter.add(clip.samples.data(), clip.samples.size() / static_cast<std::size_t>(clip.channels));
    return meter.integrated_lufs();
}

/** Linear, over all channels. */
double peak_of(const Clip& clip) {
    double peak = 0;
    for (double sample : clip.samples) {
        peak = std::max(peak, std::fabs(sample));
    }
    return peak;
}

void scale(Clip& clip, double gain) {
    for (double& sample : clip.samples) {
        sample *= gain;
    }
}

/** Brings the first to the loudness of the second, and both down where a peak would not fit. */
void make_equally_loud(Clip& first, Clip& second) {
    const double difference = loudness_of(second) - loudness_of(first);
    if (std::isfinite(difference)) {
        scale(first, std::pow(10, difference / 20));
    }
    const double peak = std::max(peak_of(first), peak_of(second));
    if (peak > kMostPeak) {
        scale(first, kMostPeak / peak);
        scale(second, kMostPeak / peak);
    }
}

/** A file in memory, for libsndfile. */
struct MemoryFile {
    std::string bytes;
    sf_count_t at = 0;

    static MemoryFile& of(void* self) { return *static_cast<MemoryFile*>(self); }

    static sf_count_t size(void* self) { return static_cast<sf_count_t>(of(self).bytes.size()); }

    static sf_count_t seek(sf_count_t offset, int from, void* self) {
        MemoryFile& file = of(self);
        file.at = offset + (from == SEEK_SET ? 0 : from == SEEK_CUR ? file.at : size(self));
        return file.at;
    }

    static sf_count_t read(void* to, sf_count_t count, void* self) {
        MemoryFile& file = of(self);
        count = std::clamp<sf_count_t>(size(self) - file.at, 0, count);
        std::memcpy(to, file.bytes.data() + file.at, static_cast<std::size_t>(count));
        file.at += count;
        return count;
    }

    static sf_count_t write(const void* from, sf_count_t count, void* self) {
        MemoryFile& file = of(self);
        const auto end = static_cast<std::size_t>(file.at + count);
        file.bytes.resize(std::max(file.bytes.size(), end));
        std::memcpy(&file.bytes[static_cast<std::size_t>(file.at)], from,
                    static_cast<std::size_t>(count));
        file.at += count;
        return count;
    }

    static sf_count_t tell(void* self) { return of(self).at; }
};

/** An Ogg Opus file as bytes. Throws with the library's reason. */
std::string opus(const Clip& clip) {
    MemoryFile memory;
    SF_VIRTUAL_IO io = {MemoryFile::size, MemoryFile::seek, MemoryFile::read, MemoryFile::write,
                        MemoryFile::tell};
    {
        SndfileHandle file(io, &memory, SFM_WRITE, SF_FORMAT_OGG | SF_FORMAT_OPUS, clip.channels,
                           clip.rate);
        if (!file.rawHandle()) {
            throw std::runtime_error(file.strError());
        }
        double compression = 1 - (kBitsPerSecond - 6000) / 250000;  // libsndfile's own scale
        file.command(SFC_SET_COMPRESSION_LEVEL, &compression, sizeof compression);
        file.write(clip.samples.data(), static_cast<sf_count_t>(clip.samples.size()));
    }
    // The library draws a serial number at random, and equal recordings shall give equal pages.
    set_ogg_serial_of(memory.bytes, kSerial);
    return memory.bytes;
}

/** RFC 4648, with padding. */
std::string base64(const std::string& bytes) {
    constexpr const char* kDigits =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    for (std::size_t i = 0; i < bytes.size(); i += 3) {
        unsigned long three = 0;
        for (std::size_t k = 0; k < 3; ++k) {
            three =
                three << 8 | (i + k < bytes.size() ? static_cast<unsigned char>(bytes[i + k]) : 0u);
        }
        for (std::size_t k = 0; k < 4; ++k) {
            text += i + k <= bytes.size() ? kDigits[three >> (18 - 6 * k) & 63] : '=';
        }
    }
    return text;
}

/** Without scripts, the audio elements show their own controls. */
constexpr const char* kScript = R"js(<script>
(()=>{const s=document.querySelector('.listen'),q=x=>s.querySelector(x),a=[...s.querySelectorAll('audio')],
p=q('.play'),k=q('.seek'),o=q('output');let now=1;
const time=t=>Math.floor(t/60)+':'+String(Math.floor(t%60)).padStart(2,'0');
const show=()=>{const on=!a[now].paused;p.textContent=on?'Pause':'Play';k.value=a[now].currentTime;
k.setAttribute('aria-valuetext',time(a[now].currentTime));o.textContent=time(a[now].currentTime)};
a.forEach((x,i)=>{x.parentNode.hidden=true;x.ontimeupdate=x.onplay=x.onpause=()=>{if(i===now)show()}});
a[1].onloadedmetadata=()=>{k.max=a[1].duration};if(a[1].duration)k.max=a[1].duration;
p.onclick=()=>{a[now].paused?a[now].play():a[now].pause()};
k.oninput=()=>{a[now].currentTime=k.value;show()};
s.querySelectorAll('[type=radio]').forEach(r=>r.onchange=()=>{const was=a[now],on=!was.paused;was.pause();
now=+r.value;a[now].currentTime=was.currentTime;if(on)a[now].play();show()});
const from=+s.dataset.from;document.querySelectorAll('.mark').forEach(m=>{const at=m.dataset.at-from;
if(at<0||at>k.max)return;m.disabled=false;m.onclick=()=>{a[now].currentTime=at;a[now].play();show()}});
q('.player').hidden=false;show()})();
</script>
)js";

}  // namespace

std::string listening_part(const FileFacts& facts) {
    if (facts.outcome != Outcome::Leveled || !facts.leveling || facts.channels > kMostChannels) {
        return "";
    }
    const double from_s = most_different_s(facts, kSeconds);
    std::string before;
    std::string after;
    try {
        Clip was = read_clip(facts.input, from_s);
        Clip is = read_clip(facts.output, from_s);
        make_equally_loud(was, is);
        before = base64(opus(resampled(was)));
        after = base64(opus(resampled(is)));
        // A report without sound is still a report; that the files could be read was shown before.
    } catch (const std::exception&) {
        return "";
    }
    const auto audio = [](const char* label, const std::string& data) {
        return fmt::format(
            "<p>{0} <audio controls preload=\"auto\" aria-label=\"{0}\" "
            "src=\"data:audio/ogg;base64,{1}\"></audio></p>\n",
            label, data);
    };
    return fmt::format(
        "<section class=\"listen\" data-from=\"{:.2f}\" aria-labelledby=\"listen\">\n<h2 "
        "id=\"listen\">Listen</h2>\n"
        "<p class=\"soft\">From {} to {}, where the voices differ most. Both at the same loudness, "
        "so that only the leveling is heard.</p>\n"
        "<div class=\"player\" hidden>\n<button type=\"button\" class=\"play\">Play</button>\n"
        "<fieldset><legend>Version</legend>\n"
        "<label><input type=\"radio\" name=\"version\" value=\"0\"><span>Before</span></label>"
        "<label><input type=\"radio\" name=\"version\" value=\"1\" checked><span>After</span>"
        "</label></fieldset>\n"
        "<input type=\"range\" class=\"seek\" min=\"0\" max=\"{:g}\" step=\"0.1\" value=\"0\" "
        "aria-label=\"Position\">\n<output>0:00</output>\n</div>\n{}{}</section>\n{}",
        from_s, clock_text(from_s), clock_text(std::min(facts.duration_s(), from_s + kSeconds)),
        kSeconds, audio("Before", before), audio("After", after), kScript);
}

}  // namespace quorvane
