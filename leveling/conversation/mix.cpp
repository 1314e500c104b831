#include "leveling/conversation/mix.h"

#include <sndfile.h>

#include <algorithm>
#include <cstddef>
#include <deque>

#include "leveling/audio/portable_math.h"
#include "leveling/conversation/aligned_reader.h"
#include "leveling/facts/file_error.h"
#include "leveling/preparation/sound_files.h"
#include "leveling/publish/limiter.h"

namespace quorvane {
namespace {

constexpr long long kBlockFrames = 16384;

/** Bytes from which a WAV file's sizes no longer fit. */
constexpr double kMostWavBytes = 4.0e9;

/** A track of one channel goes into every channel of the sum. */
void add(const std::vector<double>& samples,
         int channels,
         long long frames,
         std::vector<double>& sum,
         int sum_channels) {
    for (long long i = 0; i < frames; ++i) {
        for (int channel = 0; channel < sum_channels; ++channel) {
            const long long at = i * channels + std::min(channel, channels - 1);
            sum[static_cast<std::size_t>(i * sum_channels + channel)] +=
                samples[static_cast<std::size_t>(at)];
        }
    }
}

}  // namespace

void mix_tracks(const std::vector<MixedTrack>& tracks,
                const std::string& to,
                const std::function<void(double)>& progress) {
    int channels = 1;
    std::size_t bins = 0;
    std::deque<AlignedReader> readers;
    for (const MixedTrack& track : tracks) {
        if (track.sample_rate_hz != tracks.front().sample_rate_hz) {
            throw FileError("the tracks have different sample rates, which cannot be mixed");
        }
        // Stereo where one of the tracks is.
        channels = std::max(channels, track.channels);
        bins = std::max(bins, track.curve_db.size());
        readers.emplace_back(track.recording, track.high_pass, track.curve_db, track.bin_frames,
                             track.time);
    }
    const long long bin_frames = tracks.front().bin_frames;
    // Floats of four bytes.
    const double bytes = static_cast<double>(bins) * static_cast<double>(bin_frames) * channels * 4;
    const int container = bytes > kMostWavBytes ? SF_FORMAT_RF64 : SF_FORMAT_WAV;
    OutputFile out(to, container | SF_FORMAT_FLOAT, channels, tracks.front().sample_rate_hz);
    std::vector<double> sum(static_cast<std::size_t>(bin_frames * channels));
    std::vector<double> block;
    double done = 0;
    for (;;) {
        std::fill(sum.begin(), sum.end(), 0.0);
        // The tracks may end at different times; the longest decides.
        long long longest = 0;
        for (std::size_t i = 0; i < tracks.size(); ++i) {
            block.resize(static_cast<std::size_t>(bin_frames * tracks[i].channels));
            const long long frames = readers[i].read(block.data(), bin_frames);
            add(block, tracks[i].channels, frames, sum, channels);
            longest = std::max(longest, frames);
        }
        if (longest == 0) {
            break;
        }
        out.take(sum.data(), sum.data(), longest);
        progress(std::min(1.0, done++ / static_cast<double>(bins)));
    }
    out.finish();
}

void write_mix(const std::string& from,
               const std::string& to,
               int format,
               std::optional<double> ceiling_dbtp) {
    InputFile in(from);
    const int channels = in.info().channels;
    OutputFile out(to, format, channels, in.info().samplerate);
    TruePeakLimiter limiter(channels, in.info().samplerate, 1,
                            portable_amplitude(ceiling_dbtp.value_or(0)));
    std::vector<double> block(static_cast<std::size_t>(kBlockFrames * channels));
    std::vector<double> ready;
    const auto pass_on = [&] {
        out.take(ready.data(), ready.data(), static_cast<long long>(ready.size()) / channels);
        ready.clear();
    };
    for (long long frames = 0; (frames = in.source().read(block.data(), kBlockFrames)) > 0;) {
        if (!ceiling_dbtp) {
            out.take(block.data(), block.data(), frames);
            continue;
        }
        limiter.process(block.data(), static_cast<std::size_t>(frames), ready);
        pass_on();
    }
    if (ceiling_dbtp) {
        // What the limiter held back to look ahead.
        limiter.finish(ready);
        pass_on();
    }
    out.finish();
}

// In the container of `like` its own encoding, in any other 24 bits; empty for an unknown
// extension.
MixFormat mix_format(const std::string& extension, int like) {
    struct Row {
        const char* extension = "";
        MixFormat format;
    };

    constexpr Row kRows[] = {{"wav", {SF_FORMAT_WAV | SF_FORMAT_PCM_24, 0, false}},
                             {"flac", {SF_FORMAT_FLAC | SF_FORMAT_PCM_24, 0, false}},
                             {"aif", {SF_FORMAT_AIFF | SF_FORMAT_PCM_24, 0, false}},
                             {"aiff", {SF_FORMAT_AIFF | SF_FORMAT_PCM_24, 0, false}},
                             {"caf", {SF_FORMAT_CAF | SF_FORMAT_PCM_24, 0, false}},
                             {"w64", {SF_FORMAT_W64 | SF_FORMAT_PCM_24, 0, false}},
                             {"rf64", {SF_FORMAT_RF64 | SF_FORMAT_PCM_24, 0, false}},
                             {"mp3", {SF_FORMAT_MPEG | SF_FORMAT_MPEG_LAYER_III, 96000, false}},
                             {"ogg", {SF_FORMAT_OGG | SF_FORMAT_VORBIS, 96000, false}},
                             {"opus", {SF_FORMAT_OGG | SF_FORMAT_OPUS, 64000, false}},
                             {"m4a", {0, 96000, true}}};
    for (const Row& row : kRows) {
        if (extension != row.extension) {
            continue;
        }
        MixFormat format = row.format;
        const bool is_same = (like & SF_FORMAT_TYPEMASK) == (format.format & SF_FORMAT_TYPEMASK);
        if (is_same && !format.is_lossy()) {
            format.format = like;
        }
        return format;
    }
    return {};
}

}  // namespace quorvane
