#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "leveling/media/media_input.h"

namespace quorvane::media {

/** Hz: the rate at which Opus runs and counts its delay, whatever its source had. */
constexpr int kOpusRate = 48000;

/** The most channels of a sound that is leveled. */
constexpr int kMostSoundChannels = 64;

/** Which sound of a file is to be leveled, and how it is encoded again. */
struct SoundChoice {
    int number = 0;     // counted from 1 among the audio streams; 0: the default one
    bool all = false;   // every audio stream
    std::string codec;  // FFmpeg's name of a codec or encoder; empty: the source's
};

/** One audio stream that is to be leveled. */
struct Sound {
    int stream;  // its index in the container
    int number;  // counted from 1 among the audio streams
    AVCodecID codec;
    std::string codec_name;
    int sample_rate_hz;
    int channels;
    std::string layout;     // of the channels, FFmpeg's name: "5.1(side)"; empty: not known
    std::int64_t bit_rate;  // bits per second, 0 where the container does not tell
    bool lossless;
    int bits;  // of a lossless sound's samples
};

/** What a media file is, as far as leveling its sound needs to know. */
struct MediaFile {
    std::string path;
    std::string demuxer;
    std::string muxer;      // that writes such files; empty: there is none
    std::string container;  // for people: "MP4", "Matroska", ...
    Layout layout;
    double duration_s = 0;  // 0: the container does not tell
    int audio_streams = 0;
    std::vector<Sound> sounds;  // the chosen ones
};

/**
 * Looks at a file's content and chooses its sound. Throws std::system_error or FileError: no media
 * file, damaged, encrypted, no sound, no such stream, too many channels, no decoder, an absurd
 * duration.
 */
MediaFile probe_media(const std::string& path, const SoundChoice& choice);

/** What a sound is encoded with. */
struct EncoderChoice {
    const AVCodec* encoder;
    bool same_codec;  // as the source's
};

/**
 * Codecs that the file's container takes and the libraries encode, apart from the sound's own: the
 * ones that usually serve first.
 */
std::vector<std::string> servants_for(const MediaFile& file, const Sound& sound);

/**
 * The encoder for a sound of the file. Throws FileError, naming what would serve, when the
 * libraries have none, or the container cannot be written.
 */
EncoderChoice choose_encoder(const MediaFile& file, const Sound& sound, const std::string& codec);

}  // namespace quorvane::media
