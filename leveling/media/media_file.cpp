#include "leveling/media/media_file.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <map>

#include "leveling/media/channel_layout.h"

namespace quorvane::media {
namespace {

// Two weeks. No recording is longer; a header that says so is wrong.
constexpr double kLongestSeconds = 14 * 86400.0;
constexpr int kPacketsLookedAt = 50;  // for marks of encryption

/** The muxer for a demuxer's files, and the name that people know the container by. */
struct Container {
    const char* muxer;
    const char* name;
};

/** MP4, M4A and QuickTime have one demuxer and different muxers; the brand distinguishes them. */
Container mp4_container(const AVFormatContext& context) {
    const AVDictionaryEntry* entry = av_dict_get(context.metadata, "major_brand", nullptr, 0);
    const std::string brand = entry ? entry->value : "qt  ";
    const auto starts = [&](const char* text) { return brand.rfind(text, 0) == 0; };
    if (starts("qt")) {
        return {"mov", "QuickTime"};
    }
    if (starts("M4A") || starts("M4B") || starts("M4P") || starts("M4V")) {
        return {"ipod", "MPEG-4 audio"};
    }
    if (starts("3gp")) {
        return {"3gp", "3GP"};
    }
    if (starts("3g2")) {
        return {"3g2", "3G2"};
    }
    return {"mp4", "MP4"};
}

/**
 * The muxer that writes a file like this one, and its name for people. The muxer is empty for what
 * can be read and not written back.
 */
Container container_of(const MediaInput& input) {
    static const std::map<std::string, Container> containers = {{"asf", {"asf", "ASF"}},
                                                                {"avi", {"avi", "AVI"}},
                                                                {"aac", {"adts", "ADTS"}},
                                                                {"ac3", {"ac3", "AC-3"}},
                                                                {"eac3", {"eac3", "E-AC-3"}},
                                                                {"wv", {"wv", "WavPack"}},
                                                                {"tta", {"tta", "True Audio"}},
                                                                {"ape", {"", "Monkey's Audio"}},
                                                                {"dsf", {"", "DSF"}},
                                                                {"wav", {"wav", "WAV"}},
                                                                {"w64", {"w64", "Wave64"}},
                                                                {"aiff", {"aiff", "AIFF"}},
                                                                {"flac", {"flac", "FLAC"}},
                                                                {"ogg", {"ogg", "Ogg"}},
                                                                {"mp3", {"mp3", "MP3"}},
                                                                {"caf", {"caf", "CAF"}},
                                                                {"au", {"au", "AU"}}};
    if (input.demuxer() == "mov") {
        return mp4_container(input.context());
    }
    if (input.demuxer() == "matroska") {
        const bool webm = input.layout().doctype == "webm";
        return webm ? Container{"webm", "WebM"} : Container{"matroska", "Matroska"};
    }
    const AVFormatContext& context = input.context();
    if (input.demuxer() == "mp3" && context.nb_streams > 0 &&
        context.streams[0]->codecpar->codec_id == AV_CODEC_ID_MP2) {
        return {"mp2", "MPEG audio, layer II"};
    }
    return containers.at(input.demuxer());
}

/** By the stream's tag, as protected files of shops have it. */
bool is_encrypted(const AVStream& stream) {
    const auto tag = stream.codecpar->codec_tag;
    constexpr std::array<std::uint32_t, 5> kTags = {
        MKTAG('e', 'n', 'c', 'a'), MKTAG('e', 'n', 'c', 'v'), MKTAG('e', 'n', 'c', 's'),
        MKTAG('d', 'r', 'm', 's'), MKTAG('d', 'r', 'm', 'i')};
    const auto has = [&](const char* name) {
        return av_dict_get(stream.metadata, name, nullptr, 0) != nullptr;
    };
    return std::find(kTags.begin(), kTags.end(), tag) != kTags.end() || has("enc_key_id");
}

/** Throws FileError: decoding such a stream would give noise. */
void refuse_encrypted(const AVFormatContext& context) {
    bool encrypted = av_dict_get(context.metadata, "asf_protection_type", nullptr, 0) ||
                     av_dict_get(context.metadata, "ASF_Protection_Type", nullptr, 0);
    for (unsigned i = 0; i < context.nb_streams; ++i) {
        encrypted = encrypted || is_encrypted(*context.streams[i]);
    }
    if (encrypted) {
        throw FileError(kEncrypted);
    }
}

/** Bits of a lossless sound's samples; 0 for a lossy one. */
int lossless_bits(const AVCodecParameters& parameters) {
    const AVCodecDescriptor* descriptor = avcodec_descriptor_get(parameters.codec_id);
    const int kinds = descriptor ? descriptor->props : 0;
    const bool hybrid = parameters.codec_id == AV_CODEC_ID_WAVPACK;
    if (!(kinds & AV_CODEC_PROP_LOSSLESS) || (kinds & AV_CODEC_PROP_LOSSY && !hybrid)) {
        return 0;
    }
    if (parameters.bits_per_raw_sample > 0) {
        return parameters.bits_per_raw_sample;
    }
    if (const int bits = av_get_exact_bits_per_sample(parameters.codec_id); bits > 0) {
        return bits;
    }
    return 8 * av_get_bytes_per_sample(static_cast<AVSampleFormat>(parameters.format));
}

/** What the header says of a stream. number: counted from 1 among the audio streams. */
Sound describe(const AVStream& stream, int number) {
    const AVCodecParameters& parameters = *stream.codecpar;
    Sound sound{};
    sound.stream = stream.index;
    sound.number = number;
    sound.codec = parameters.codec_id;
    sound.codec_name = avcodec_get_name(parameters.codec_id);
    sound.sample_rate_hz = parameters.sample_rate;
    sound.channels = parameters.ch_layout.nb_channels;
    sound.layout = layout_name(parameters.ch_layout);
    sound.bit_rate = parameters.bit_rate;
    sound.bits = lossless_bits(parameters);
    sound.lossless = sound.bits > 0;
    return sound;
}

/** Throws FileError for a sound that cannot be decoded or leveled. */
void refuse_unusable(const Sound& sound, const MediaFile& file) {
    const std::string name = file.audio_streams > 1 ? fmt::format("audio stream {}", sound.number)
                                                    : std::string("its sound");
    if (!avcodec_find_decoder(sound.codec)) {
        throw FileError(
            fmt::format("{} has a coding that cannot be read ({})", name, sound.codec_name));
    }
    if (sound.channels > kMostSoundChannels) {
        throw FileError(
            fmt::format("{} has {} channels, and at most {} can be leveled{}", name, sound.channels,
                        kMostSoundChannels,
                        file.audio_streams > 1 ? " (--audio-stream N chooses another)" : ""));
    }
    if (sound.channels < 1 || sound.sample_rate_hz < 1) {
        throw FileError(fmt::format("{} states neither channels nor sample rate", name));
    }
}

/** The streams that --audio-stream chooses, in the file's order. Throws FileError for none. */
std::vector<Sound> choose_sounds(const std::vector<const AVStream*>& audio,
                                 const SoundChoice& choice) {
    std::vector<Sound> chosen;
    if (choice.number > static_cast<int>(audio.size())) {
        throw FileError(
            fmt::format("has no audio stream {}: it has {}", choice.number, audio.size()));
    }
    const auto is_default = [](const AVStream* stream) {
        return (stream->disposition & AV_DISPOSITION_DEFAULT) != 0;
    };
    const auto found = std::find_if(audio.begin(), audio.end(), is_default);
    const auto first = found == audio.end() ? 0 : found - audio.begin();
    const auto wanted = choice.number > 0 ? choice.number - 1 : first;
    for (std::size_t i = 0; i < audio.size(); ++i) {
        if (choice.all || static_cast<std::ptrdiff_t>(i) == wanted) {
            chosen.push_back(describe(*audio[i], static_cast<int>(i) + 1));
        }
    }
    return chosen;
}

/** By the encoder's own name or by its codec's; null for neither. */
const AVCodec* find_encoder(const std::string& name) {
    if (const AVCodec* encoder = avcodec_find_encoder_by_name(name.c_str())) {
        return encoder;
    }
    const AVCodecDescriptor* descriptor = avcodec_descriptor_get_by_name(name.c_str());
    return descriptor ? avcodec_find_encoder(descriptor->id) : nullptr;
}

/** Codecs of one or two channels alone. */
bool is_narrow(AVCodecID codec) {
    return codec == AV_CODEC_ID_MP3 || codec == AV_CODEC_ID_WMAV2;
}

}  // namespace

std::vector<std::string> servants_for(const MediaFile& file, const Sound& sound) {
    const AVOutputFormat* format = av_guess_format(file.muxer.c_str(), nullptr, nullptr);
    std::vector<std::string> servants;
    for (const char* name : {"aac", "opus", "vorbis", "wmav2", "mp3", "ac3", "flac", "pcm_s24le"}) {
        const AVCodecDescriptor* codec = avcodec_descriptor_get_by_name(name);
        const bool rate_fits = codec->id != AV_CODEC_ID_OPUS || sound.sample_rate_hz == kOpusRate;
        const bool fits = rate_fits && (sound.channels <= 2 || !is_narrow(codec->id));
        if (format && fits && codec->id != sound.codec && avcodec_find_encoder(codec->id) &&
            avformat_query_codec(format, codec->id, FF_COMPLIANCE_NORMAL) == 1) {
            servants.emplace_back(name);
        }
    }
    return servants;
}

MediaFile probe_media(const std::string& path, const SoundChoice& choice) {
    MediaInput input(path);
    const AVFormatContext& context = input.context();
    const Container container = container_of(input);
    MediaFile file;
    file.path = path;
    file.demuxer = input.demuxer();
    file.muxer = container.muxer;
    file.container = container.name;
    file.layout = input.layout();
    if (context.duration > 0) {
        file.duration_s = static_cast<double>(context.duration) / AV_TIME_BASE;
    }
    refuse_encrypted(context);
    const Packet packet = make_packet();
    for (int i = 0; i < kPacketsLookedAt && input.read(*packet); ++i) {
        av_packet_unref(packet.get());
    }
    std::vector<const AVStream*> audio;
    for (unsigned i = 0; i < context.nb_streams; ++i) {
        if (context.streams[i]->codecpar->codec_type == AVMEDIA_TYPE_AUDIO) {
            audio.push_back(context.streams[i]);
        }
    }
    if (audio.empty()) {
        throw FileError("has no sound");
    }
    if (file.duration_s > kLongestSeconds) {
        throw FileError(fmt::format("claims to last {:.0f} days, which no recording does",
                                    file.duration_s / 86400));
    }
    file.audio_streams = static_cast<int>(audio.size());
    file.sounds = choose_sounds(audio, choice);
    for (const Sound& sound : file.sounds) {
        refuse_unusable(sound, file);
    }
    return file;
}

EncoderChoice choose_encoder(const MediaFile& file, const Sound& sound, const std::string& codec) {
    if (file.muxer.empty()) {
        throw FileError(
            fmt::format("its format ({}) can be read but not written back", file.container));
    }
    const AVCodec* encoder =
        codec.empty() ? avcodec_find_encoder(sound.codec) : find_encoder(codec);
    if (encoder && encoder->type == AVMEDIA_TYPE_AUDIO &&
        !(encoder->capabilities & AV_CODEC_CAP_EXPERIMENTAL)) {
        return {encoder, encoder->id == sound.codec};
    }
    const std::vector<std::string> servants = servants_for(file, sound);
    const std::string advice =
        servants.empty() ? "" : fmt::format("; --audio-codec {} would serve", servants.front());
    if (!codec.empty()) {
        throw FileError(fmt::format("this build has no encoder named {}{}", codec, advice));
    }
    throw FileError(
        fmt::format("its sound ({}) can be read, but this build has no encoder for it{}",
                    sound.codec_name, advice));
}

}  // namespace quorvane::media
