#include "leveling/audio/recode.h"

#include <fmt/format.h>
#include <taglib/fileref.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <iterator>
#include <stdexcept>
#include <utility>
#include <vector>

#include "leveling/audio/channel_places.h"
#include "leveling/audio/dither.h"
#include "leveling/audio/sound_file.h"
#include "leveling/audio/tag_stream.h"
#include "leveling/facts/no_room.h"

/*
 * Files coded with loss are decoded once and encoded once: the engine's ten steps between two
 * codings would cost ten generations. An encoder is asked for a bit rate not below that of the
 * input; which setting that is differs by codec, and libsndfile hides each behind its compression
 * level.
 */

namespace quorvane {
namespace {

// Small: a block with an error in it is lost as a whole.
constexpr sf_count_t kBlockFrames = 4096;
constexpr double kRiffLimit = 4.2e9;  // bytes; 32-bit sizes end at 2^32, the header needs some

/** Every frame of one file into another, as floats. */
Decoded copy_samples(SndfileHandle& from, SndfileHandle& to) {
    Decoded result;
    result.sample_rate_hz = from.samplerate();
    std::vector<float> buffer(static_cast<std::size_t>(kBlockFrames) *
                              static_cast<std::size_t>(from.channels()));
    for (;;) {
        const sf_count_t got = from.readf(buffer.data(), kBlockFrames);
        if (got <= 0) {
            break;
        }
        errno = 0;
        if (to.writef(buffer.data(), got) != got) {
            fail_write(errno, to.strError());
        }
        result.frames += got;
    }
    if (from.error()) {
        result.error = from.strError();
    }
    return result;
}

/** Of each channel, whether all of its samples are the same in both files. */
std::vector<bool> equal_channels(const std::string& one_path, const std::string& other_path) {
    SndfileHandle one = open_to_read(one_path);
    SndfileHandle other = open_to_read(other_path);
    const auto channels = static_cast<std::size_t>(one.channels());
    std::vector<bool> equal(channels, one.channels() == other.channels());
    std::vector<double> block(static_cast<std::size_t>(kBlockFrames) * channels);
    std::vector<double> other_block(block.size());
    while (std::find(equal.begin(), equal.end(), true) != equal.end()) {
        const sf_count_t got = one.readf(block.data(), kBlockFrames);
        if (got <= 0 || other.readf(other_block.data(), got) != got) {
            break;
        }
        for (std::size_t i = 0; i < static_cast<std::size_t>(got) * channels; ++i) {
            equal[i % channels] = equal[i % channels] && block[i] == other_block[i];
        }
    }
    return equal;
}

/** The same into integers of up to 16 bits. source: what the file was made from. */
Decoded copy_dithered(SndfileHandle& from,
                      SndfileHandle& source,
                      SndfileHandle& to,
                      int bits,
                      const std::vector<bool>& exact = {}) {
    Decoded result;
    Dither dither(to.channels(), to.samplerate(), bits);
    for (std::size_t i = 0; i < exact.size(); ++i) {
        if (exact[i]) {
            dither.keep_exact(static_cast<int>(i));
        }
    }
    const auto samples =
        static_cast<std::size_t>(kBlockFrames) * static_cast<std::size_t>(from.channels());
    std::vector<double> block(samples);
    std::vector<double> source_block(samples);
    std::vector<std::int16_t> ready;
    const auto write = [&] {
        const auto count = static_cast<sf_count_t>(ready.size());
        errno = 0;
        if (to.write(ready.data(), count) != count) {
            fail_write(errno, to.strError());
        }
        ready.clear();
    };
    for (sf_count_t got = 0; (got = from.readf(block.data(), kBlockFrames)) > 0;) {
        // A source that is shorter is cut off: what lies behind its end is not known as silence.
        std::fill(source_block.begin(), source_block.end(), 1.0);
        source.readf(source_block.data(), got);
        dither.process(block.data(), source_block.data(), static_cast<std::size_t>(got), ready);
        write();
        result.frames += got;
    }
    dither.finish(ready);
    write();
    if (from.error()) {
        result.error = from.strError();
    }
    return result;
}

/**
 * libsndfile takes a compression level from 0 (largest file) to 1 and maps it to the encoder's own
 * scale; these are the inverses.
 */
double mp3_compression(double bits_per_second, int rate) {
    // MPEG-1 has other bit rates than the halved sample rates of MPEG-2.
    const double most = rate >= 32000 ? 320000 : 160000;
    const double least = rate >= 32000 ? 32000 : 8000;
    return (most - bits_per_second) / (most - least);
}

/** libsndfile's scale for Opus: 6 to 256 kbit/s a channel. */
double opus_compression(double bits_per_second, int channels) {
    return 1 - (bits_per_second / channels - 6000) / 250000;
}

/**
 * The qualities whose nominal bit rates, for two channels at 44.1 kHz, are those of the encoder.
 */
double vorbis_compression(double bits_per_second, int channels, int rate) {
    constexpr double kLeastQuality = 0.4;
    constexpr std::pair<double, double> kQualities[] = {
        {128000, 0.4}, {256000, 0.8}, {320000, 0.9}, {500000, 1.0}};
    const double as_stereo = bits_per_second * 2 / channels * 44100 / std::min(rate, 44100);
    double quality = kLeastQuality;
    for (std::size_t i = 1; i < std::size(kQualities); ++i) {
        const auto [low, low_quality] = kQualities[i - 1];
        const auto [high, high_quality] = kQualities[i];
        if (as_stereo > low) {
            quality = low_quality + (high_quality - low_quality) *
                                        std::min(1.0, (as_stereo - low) / (high - low));
        }
    }
    return 1 - quality;
}

/** Of the audio alone as far as the headers tell, in bits per second. */
double bit_rate_of(const std::string& path, double seconds) {
    TagStream stream(path, TagStream::For::Reading);
    const TagLib::FileRef file(&stream);
    stream.require_no_error();
    if (!file.isNull() && file.audioProperties() && file.audioProperties()->bitrate() > 0) {
        return file.audioProperties()->bitrate() * 1000.0;
    }
    return static_cast<double>(std::filesystem::file_size(path)) * 8 / std::max(seconds, 1.0);
}

void set_bit_rate(SndfileHandle& file, double bits_per_second) {
    double compression = 0;
    switch (file.format() & SF_FORMAT_SUBMASK) {
        case SF_FORMAT_VORBIS:
            compression = vorbis_compression(bits_per_second, file.channels(), file.samplerate());
            break;
        case SF_FORMAT_OPUS:
            compression = opus_compression(bits_per_second, file.channels());
            break;
        case SF_FORMAT_MPEG_LAYER_III: {
            // The level then means a bit rate; with a variable one it would mean a quality.
            int mode = SF_BITRATE_MODE_CONSTANT;
            file.command(SFC_SET_BITRATE_MODE, &mode, sizeof mode);
            compression = mp3_compression(bits_per_second, file.samplerate());
            break;
        }
        default:
            return;
    }
    compression = std::clamp(compression, 0.0, 1.0);
    file.command(SFC_SET_COMPRESSION_LEVEL, &compression, sizeof compression);
}

}  // namespace

Decoded decode_to_float(const std::string& from, const std::string& to) {
    SndfileHandle in = open_to_read(from);
    // An unknown length is the greatest number of frames, which selects the larger container.
    const double bytes = static_cast<double>(in.frames()) * in.channels() * sizeof(float);
    // Plain WAV has no place for those of the channels.
    const int small = in.channels() > 2 ? SF_FORMAT_WAVEX : SF_FORMAT_WAV;
    const int container = bytes > kRiffLimit ? SF_FORMAT_RF64 : small;
    SndfileHandle out =
        open_to_write(to, container | SF_FORMAT_FLOAT, in.channels(), in.samplerate());
    copy_places(in, out);
    Decoded decoded = copy_samples(in, out);
    if (decoded.frames == 0 && !decoded.error.empty()) {
        throw std::runtime_error(decoded.error);
    }
    return decoded;
}

void encode_like(const std::string& from,
                 const std::string& like,
                 const std::string& to,
                 Quantization quantization) {
    SndfileHandle in = open_to_read(from);
    SndfileHandle model = open_to_read(like);
    SndfileHandle out = open_to_write(to, model.format(), in.channels(), in.samplerate());
    copy_places(model, out);
    out.command(SFC_SET_CLIPPING, nullptr, SF_TRUE);
    set_bit_rate(out, bit_rate_of(like, static_cast<double>(model.frames()) / model.samplerate()));
    const int bits = quantization == Quantization::kDithered ? dithered_bits(out.format()) : 0;
    const Decoded copied = bits ? copy_dithered(in, model, out, bits) : copy_samples(in, out);
    if (!copied.error.empty()) {
        throw std::runtime_error(copied.error);
    }
}

void encode_at(const std::string& from, const std::string& to, int format, double bits_per_second) {
    SndfileHandle in = open_to_read(from);
    SndfileHandle out = open_to_write(to, format, in.channels(), in.samplerate());
    out.command(SFC_SET_CLIPPING, nullptr, SF_TRUE);
    set_bit_rate(out, bits_per_second);
    const Decoded copied = copy_samples(in, out);
    if (!copied.error.empty()) {
        throw std::runtime_error(copied.error);
    }
}

void write_dithered(const std::string& from,
                    const std::string& source,
                    const std::string& to,
                    int bits) {
    SndfileHandle in = open_to_read(from);
    SndfileHandle model = open_to_read(source);
    SndfileHandle out =
        open_to_write(to, SF_FORMAT_RF64 | SF_FORMAT_PCM_16, in.channels(), in.samplerate());
    out.command(SFC_RF64_AUTO_DOWNGRADE, nullptr, SF_TRUE);
    copy_places(model, out);
    // Of a surround sound, channels that were not leveled stay as they are to the bit.
    const Decoded copied =
        copy_dithered(in, model, out, bits,
                      in.channels() > 2 ? equal_channels(from, source) : std::vector<bool>());
    if (!copied.error.empty()) {
        throw std::runtime_error(copied.error);
    }
}

}  // namespace quorvane
