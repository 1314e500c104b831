#include "leveling/media/stream_copy.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <new>
#include <set>

extern "C" {
#include <libavutil/avstring.h>
}

namespace quorvane::media {
namespace {

/** Tags that describe the old file's sound or bytes. */
bool is_stale(const std::string& name) {
    static const std::set<std::string> names = {"major_brand", "minor_version", "compatible_brands",
                                                "iTunSMPB",    "iTunNORM",      "DURATION"};
    return names.count(name) != 0 || av_strncasecmp(name.c_str(), "replaygain_", 11) == 0 ||
           av_strncasecmp(name.c_str(), "r128_", 5) == 0;
}

/** Tags of a leveled stream that described its old packets. */
bool is_statistic(const std::string& name) {
    const auto starts = [&](const char* text) { return name.rfind(text, 0) == 0; };
    return starts("BPS") || starts("NUMBER_OF_") || starts("_STATISTICS_") || starts("SOURCE_ID") ||
           name == "encoder" || name == "ENCODER";
}

}  // namespace

void copy_tags(const AVDictionary* from, AVDictionary** to, Tags which) {
    const AVDictionaryEntry* tag = nullptr;
    while ((tag = av_dict_get(from, "", tag, AV_DICT_IGNORE_SUFFIX))) {
        if (!is_stale(tag->key) && (which == Tags::All || !is_statistic(tag->key))) {
            set_entry(to, tag->key, tag->value);
        }
    }
}

void copy_parameters(const AVStream& from, const AVOutputFormat& format, AVStream& to) {
    check(avcodec_parameters_copy(to.codecpar, from.codecpar), "it cannot be written");
    const AVCodecTag* const* tags = format.codec_tag;
    // A tag stays where the new container gives it the same meaning, or has none for the codec.
    unsigned known = 0;
    const bool keep = !tags ||
                      av_codec_get_id(tags, to.codecpar->codec_tag) == to.codecpar->codec_id ||
                      !av_codec_get_tag2(tags, to.codecpar->codec_id, &known);
    if (!keep) {
        to.codecpar->codec_tag = 0;
    }
    to.time_base = from.time_base;
    to.avg_frame_rate = from.avg_frame_rate;
    to.r_frame_rate = from.r_frame_rate;
    to.sample_aspect_ratio = from.sample_aspect_ratio;
}

void copy_side_data(const AVStream& from, AVStream& to) {
#if LIBAVFORMAT_VERSION_MAJOR < 61
    // From then on it belongs to the codec parameters.
    for (int i = 0; i < from.nb_side_data; ++i) {
        const AVPacketSideData& side = from.side_data[i];
        std::uint8_t* data = av_stream_new_side_data(&to, side.type, side.size);
        if (!data) {
            throw std::bad_alloc();
        }
        std::memcpy(data, side.data, side.size);
    }
#else
    (void)from;
    (void)to;
#endif
}

void set_extradata(AVCodecParameters& parameters, const AVPacket& packet) {
    const auto size = static_cast<std::size_t>(packet.size);
    av_freep(&parameters.extradata);
    // Decoders may read a little beyond the end; the padding is zeros.
    parameters.extradata =
        static_cast<std::uint8_t*>(av_mallocz(size + AV_INPUT_BUFFER_PADDING_SIZE));
    if (!parameters.extradata) {
        throw std::bad_alloc();
    }
    std::memcpy(parameters.extradata, packet.data, size);
    parameters.extradata_size = packet.size;
}

void copy_chapters(const AVFormatContext& from, AVFormatContext& to) {
    // At least one place, since an allocation of nothing may return null.
    auto** chapters =
        static_cast<AVChapter**>(av_calloc(std::max(1U, from.nb_chapters), sizeof(AVChapter*)));
    to.chapters = chapters;
    for (unsigned i = 0; i < from.nb_chapters; ++i) {
        AVChapter* chapter =
            chapters ? static_cast<AVChapter*>(av_mallocz(sizeof(AVChapter))) : nullptr;
        if (!chapter) {
            throw std::bad_alloc();
        }
        chapters[i] = chapter;
        chapters[i]->id = from.chapters[i]->id;
        chapters[i]->time_base = from.chapters[i]->time_base;
        chapters[i]->start = from.chapters[i]->start;
        chapters[i]->end = from.chapters[i]->end;
        // Counted one by one, so that freeing the context after an error frees what is there.
        to.nb_chapters = i + 1;
        if (av_dict_copy(&chapters[i]->metadata, from.chapters[i]->metadata, 0) < 0) {
            throw std::bad_alloc();
        }
    }
}

// Writes a header into memory: whether that works depends on the version of the library.
bool muxer_takes(const std::string& muxer, const AVStream& stream) {
    if (stream.codecpar->codec_type == AVMEDIA_TYPE_ATTACHMENT) {
        return muxer == "matroska";
    }
    AVFormatContext* context = nullptr;
    check(avformat_alloc_output_context2(&context, nullptr, muxer.c_str(), nullptr),
          "it cannot be written");
    const OutputContext trial(context);
    trial->strict_std_compliance = FF_COMPLIANCE_EXPERIMENTAL;
    AVStream* out = avformat_new_stream(trial.get(), nullptr);
    if (!out) {
        throw std::bad_alloc();
    }
    copy_parameters(stream, *trial->oformat, *out);
    if (avio_open_dyn_buf(&trial->pb) < 0) {
        return false;
    }
    const bool taken =
        with_memory([&] { return avformat_write_header(trial.get(), nullptr); }) >= 0;
    std::uint8_t* bytes = nullptr;
    avio_close_dyn_buf(trial->pb, &bytes);
    av_free(bytes);
    trial->pb = nullptr;
    return taken;
}

// A packet is written into memory, and its time looked for: a sum of time and delay is not the time
// that was given.
bool muxer_adds_codec_delay(const AVCodecParameters& opus) {
    constexpr std::int64_t kTimeMs = 1000;  // two bytes, 0x03e8
    AVFormatContext* context = nullptr;
    check(avformat_alloc_output_context2(&context, nullptr, "matroska", nullptr), "Matroska");
    const OutputContext trial(context);
    AVStream* stream = avformat_new_stream(trial.get(), nullptr);
    if (!stream) {
        throw std::bad_alloc();
    }
    check(avcodec_parameters_copy(stream->codecpar, &opus), "Matroska");
    check(avio_open_dyn_buf(&trial->pb), "Matroska");
    const Packet packet = make_packet();
    // Eight zeros: the muxer does not look into a packet.
    check(av_new_packet(packet.get(), 8), "Matroska");
    std::memset(packet->data, 0, 8);
    packet->pts = packet->dts = kTimeMs;
    const bool written = with_memory([&] {
                             const int code = avformat_write_header(trial.get(), nullptr);
                             return code < 0 ? code : av_write_frame(trial.get(), packet.get());
                         }) >= 0 &&
                         av_write_trailer(trial.get()) >= 0;
    std::uint8_t* bytes = nullptr;
    const int size = avio_close_dyn_buf(trial->pb, &bytes);
    trial->pb = nullptr;
    // The cluster's timestamp: its identity, the length 2, the value.
    constexpr std::uint8_t kAsGiven[] = {0xe7, 0x82, 0x03, 0xe8};
    const bool as_given =
        std::search(bytes, bytes + size, std::begin(kAsGiven), std::end(kAsGiven)) != bytes + size;
    av_free(bytes);
    return written && !as_given;
}

}  // namespace quorvane::media
