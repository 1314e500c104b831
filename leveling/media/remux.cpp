#include "leveling/media/remux.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>
#include <set>

#include "leveling/media/encoder_choice.h"
#include "leveling/media/sound_encoder.h"
#include "leveling/media/stream_copy.h"

/*
 * A Remuxer goes through the input's packets once. A stream of the output (Track) is either a copy,
 * whose packets pass unchanged but for the clock they are counted in, or a new sound, whose packets
 * come from its encoder as soon as the copied ones have reached their time. Times are the input's
 * own: nothing is moved to zero.
 */

namespace quorvane::media {
namespace {

/** Whether a tag's name starts like this, in any case. */
bool has_tag_starting(const AVDictionary* tags, const char* start) {
    return av_dict_get(tags, start, nullptr, AV_DICT_IGNORE_SUFFIX) != nullptr;
}

/** Files whose one stream is the sound; pictures and tags lie around it. */
bool is_bare(const std::string& muxer) {
    static const std::set<std::string> muxers = {"adts", "ac3", "eac3", "wv", "tta", "asf"};
    return muxers.count(muxer) != 0;
}

/** A stream of the output: a copy, or a new sound with its encoder. */
struct Track {
    int in;
    AVStream* out = nullptr;
    std::unique_ptr<SoundEncoder> encoder;  // null: copied
    Packet pending;                         // of the encoder
    std::int64_t last_dts = AV_NOPTS_VALUE;
    std::int64_t shift = 0;  // added to its times, in the output's clock
};

class Remuxer {
  public:
    Remuxer(const MediaFile& file, const std::vector<NewSound>& sounds)
        : file_(file), input_(file.path) {
        AVFormatContext* context = nullptr;
        check(avformat_alloc_output_context2(&context, nullptr, file.muxer.c_str(), nullptr),
              "it cannot be written");
        output_.reset(context);
        // The same input gives the same bytes: no random numbers, times or versions are written.
        output_->flags |= AVFMT_FLAG_BITEXACT;
        // Accepts codecs in containers where the library still calls them experimental.
        output_->strict_std_compliance = FF_COMPLIANCE_EXPERIMENTAL;
        for (int i = 0; i < static_cast<int>(input_.context().nb_streams); ++i) {
            const auto is_new = [i](const NewSound& sound) { return sound.sound.stream == i; };
            const auto found = std::find_if(sounds.begin(), sounds.end(), is_new);
            if (found != sounds.end()) {
                add_sound(*found);
            } else if (is_wanted(i)) {
                add_copy(i);
            }
        }
        copy_file_facts();
    }

    /** Opens the output and writes its header. Empty: into memory, only to see whether it works. */
    void begin(const std::string& to) {
        Options options;
        set_muxer_options(options);
        if (to.empty()) {
            check(avio_open_dyn_buf(&output_->pb), "it cannot be written");
        } else {
            const std::string url = "file:" + to;
            output_->url = av_strdup(url.c_str());
            check(avio_open2(&output_->pb, url.c_str(), AVIO_FLAG_WRITE, nullptr, nullptr),
                  "the result cannot be stored");
        }
        const int code =
            with_memory([&] { return avformat_write_header(output_.get(), options.get()); });
        if (code < 0) {
            close_output(to);
            throw FileError(
                fmt::format("it cannot be written back as {}: {}", file_.container, reason(code)));
        }
        if (to.empty()) {
            close_output(to);
            return;
        }
        for (Track& track : tracks_) {
            shift_opus(track);
        }
    }

    void run(const Progress& progress) {
        input_.read_only([&](int index) {
            const Track* track = track_of(index);
            return track && !track->encoder;
        });
        const Packet packet = make_packet();
        while (input_.read(*packet)) {
            // What the demuxer read ahead still comes, wanted or not.
            Track* track = track_of(packet->stream_index);
            if (track && !track->encoder) {
                write_copy(*track, *packet);
                progress(input_.fraction_read());
            }
            av_packet_unref(packet.get());
        }
        encode_until(INT64_MAX, progress);
        check(with_memory([&] { return av_write_trailer(output_.get()); }),
              "the result cannot be stored");
        check(avio_closep(&output_->pb), "the result cannot be stored");
    }

    const std::vector<std::string>& notes() const { return notes_; }

  private:
    /** Adds Opus's codec delay to the times where this version of the muxer does not. */
    void shift_opus(Track& track) const {
        const AVCodecParameters& parameters = *track.out->codecpar;
        if (file_.demuxer == "matroska" && parameters.codec_id == AV_CODEC_ID_OPUS &&
            parameters.initial_padding > 0 && !muxer_adds_codec_delay(parameters)) {
            track.shift =
                av_rescale_q(parameters.initial_padding, {1, kOpusRate}, track.out->time_base);
        }
    }

    /** What was written into memory is dropped. */
    void close_output(const std::string& to) {
        if (!to.empty()) {
            avio_closep(&output_->pb);
            return;
        }
        std::uint8_t* bytes = nullptr;
        avio_close_dyn_buf(output_->pb, &bytes);
        av_free(bytes);
        output_->pb = nullptr;
    }

    /** Null for a stream that has no place in the output. */
    Track* track_of(int index) {
        for (Track& track : tracks_) {
            if (track.in == index) {
                return &track;
            }
        }
        return nullptr;
    }

    void leave_out(const AVStream& stream) {
        const char* type = av_get_media_type_string(stream.codecpar->codec_type);
        notes_.push_back(fmt::format("stream {} ({}, {}) cannot be written to {} and was left out",
                                     stream.index, type ? type : "data",
                                     avcodec_get_name(stream.codecpar->codec_id), file_.container));
    }

    // Chapters and time codes that a demuxer also shows as streams are written again from what it
    // read out of them.
    bool is_wanted(int index) {
        const AVStream& stream = input_.stream(index);
        const bool picture = (stream.disposition & AV_DISPOSITION_ATTACHED_PIC) != 0;
        if (picture && is_bare(file_.muxer)) {
            return false;
        }
        if (stream.codecpar->codec_type == AVMEDIA_TYPE_DATA && file_.demuxer == "mov") {
            const bool chapters = stream.codecpar->codec_tag == MKTAG('t', 'e', 'x', 't') &&
                                  input_.context().nb_chapters > 0;
            const bool timecode = stream.codecpar->codec_tag == MKTAG('t', 'm', 'c', 'd') &&
                                  av_dict_get(stream.metadata, "timecode", nullptr, 0);
            if (chapters || timecode) {
                return false;
            }
        }
        // Picture and sound are never left out: a container that refuses them fails the file.
        const bool essential = stream.codecpar->codec_type == AVMEDIA_TYPE_VIDEO ||
                               stream.codecpar->codec_type == AVMEDIA_TYPE_AUDIO;
        if (!essential && !muxer_takes(file_.muxer, stream)) {
            leave_out(stream);
            return false;
        }
        return true;
    }

    Track& add_track(int index, Tags tags) {
        const AVStream& from = input_.stream(index);
        AVStream* to = avformat_new_stream(output_.get(), nullptr);
        if (!to) {
            throw std::bad_alloc();
        }
        to->id = from.id;
        to->disposition = from.disposition;
        to->start_time = AV_NOPTS_VALUE;
        copy_tags(from.metadata, &to->metadata, tags);
        tracks_.push_back(Track{index, to, nullptr, nullptr, AV_NOPTS_VALUE, 0});
        return tracks_.back();
    }

    void add_copy(int index) {
        const AVStream& from = input_.stream(index);
        AVStream& to = *add_track(index, Tags::All).out;
        copy_parameters(from, *output_->oformat, to);
        copy_side_data(from, to);
        // A cover is an attachment of Matroska that the demuxer shows as a video stream.
        const bool picture = (from.disposition & AV_DISPOSITION_ATTACHED_PIC) != 0;
        if (picture && file_.demuxer == "matroska") {
            to.codecpar->codec_type = AVMEDIA_TYPE_ATTACHMENT;
            set_extradata(*to.codecpar, from.attached_pic);
            to.disposition = 0;
        }
    }

    void add_sound(const NewSound& sound) {
        const AVStream& from = input_.stream(sound.sound.stream);
        Track& track = add_track(sound.sound.stream, Tags::OfNewSound);
        SoundEncoder::Request request{};
        request.choice = choose_encoder(file_, sound.sound, sound.codec);
        request.sample_rate_hz = sound.sound.sample_rate_hz;
        request.channels = sound.sound.channels;
        request.layout = sound.sound.layout;
        // Lossless codecs have no bit rate to set.
        request.bit_rate = sound.sound.lossless ? 0 : sound.sound.bit_rate;
        request.bits = sound.sound.bits;
        std::int64_t start_ns = 0;
        // Without a source, in a trial, the values that were probed stand for it.
        if (sound.source) {
            request.sample_rate_hz = sound.source->sample_rate_hz;
            request.channels = sound.source->channels;
            request.layout = sound.source->layout;
            request.bit_rate = sound.sound.lossless ? 0 : sound.source->bit_rate;
            start_ns = sound.source->timeline.time_of(0);
        }
        request.lead_in = lead_in_for(request.choice.encoder->id, start_ns);
        request.global_header = (output_->oformat->flags & AVFMT_GLOBALHEADER) != 0;
        track.encoder = make_encoder(request, file_, sound.sound);
        if (sound.source) {
            track.encoder->begin(sound.file, *sound.source);
        }
        AVStream& to = *track.out;
        check(avcodec_parameters_from_context(to.codecpar, &track.encoder->context()),
              "it cannot be written");
        if (request.lead_in == LeadIn::LeftOut) {
            to.codecpar->initial_padding = 0;
        }
        to.time_base = {1, request.sample_rate_hz};
        copy_side_data(from, to);
    }

    // MP4's edit list begins a track anywhere in its first packets, but not when the track begins
    // late; Matroska's CodecDelay is written for Opus alone; other containers know neither.
    LeadIn lead_in_for(AVCodecID codec, std::int64_t start_ns) const {
        if (codec == AV_CODEC_ID_WMAV1 || codec == AV_CODEC_ID_WMAV2) {
            return LeadIn::Skipped;
        }
        if (file_.demuxer == "mov" && file_.layout.fragments == 0) {
            return start_ns > 0 ? LeadIn::LeftOut : LeadIn::Kept;
        }
        return file_.demuxer == "matroska" && codec == AV_CODEC_ID_OPUS ? LeadIn::Kept
                                                                        : LeadIn::LeftOut;
    }

    void copy_file_facts() {
        const AVFormatContext& from = input_.context();
        copy_tags(from.metadata, &output_->metadata, Tags::All);
        const AVDictionaryEntry* tool = av_dict_get(from.metadata, "encoder", nullptr, 0);
        if (tool && file_.demuxer == "mov") {
            set_entry(&output_->metadata, "encoding_tool", tool->value);
        }
        copy_chapters(from, *output_);
    }

    void set_muxer_options(Options& options) const {
        if (file_.demuxer == "wav") {
            options.set("write_bext", "1");
            options.set("rf64", file_.layout.is_rf64 ? "always" : "auto");
        }
        if (file_.demuxer != "mov") {
            return;
        }
        std::string flags;
        if (file_.layout.fragments > 0) {
            const double each = file_.duration_s / static_cast<double>(file_.layout.fragments);
            const bool video = has_video();
            flags = video ? "+frag_keyframe+delay_moov+default_base_moof"
                          : "+delay_moov+default_base_moof";
            // In microseconds: the mean fragment of the input, at least 0.1 s.
            if (!video) {
                options.set("frag_duration", fmt::format("{:.0f}", std::max(0.1, each) * 1e6));
            }
        } else if (file_.layout.index_first) {
            flags = "+faststart";
        }
        // QuickTime's keys with a reversed domain name have a place of their own.
        if (has_tag_starting(input_.context().metadata, "com.")) {
            flags += "+use_metadata_tags";
        }
        if (!flags.empty()) {
            options.set("movflags", flags);
        }
        const AVDictionaryEntry* brand =
            av_dict_get(input_.context().metadata, "major_brand", nullptr, 0);
        if (brand && std::strlen(brand->value) == 4) {
            options.set("brand", brand->value);
        }
        // Edit lists count in it: fine enough for one sample.
        options.set("movie_timescale", std::to_string(file_.sounds.front().sample_rate_hz));
    }

    bool has_video() const {
        return std::any_of(tracks_.begin(), tracks_.end(), [](const Track& track) {
            return track.out->codecpar->codec_type == AVMEDIA_TYPE_VIDEO &&
                   !(track.out->disposition & AV_DISPOSITION_ATTACHED_PIC);
        });
    }

    void write_copy(Track& track, AVPacket& packet) {
        const AVStream& from = input_.stream(track.in);
        // The header holds it already.
        if (track.out->codecpar->codec_type == AVMEDIA_TYPE_ATTACHMENT) {
            return;
        }
        const std::int64_t time = packet.dts != AV_NOPTS_VALUE ? packet.dts : packet.pts;
        // New sound goes first up to this time, so that the streams stay interleaved.
        if (time != AV_NOPTS_VALUE) {
            encode_until(av_rescale_q(time, from.time_base, kNanoseconds), nullptr);
        }
        av_packet_rescale_ts(&packet, from.time_base, track.out->time_base);
        write(track, packet);
    }

    /** Writes the new sound up to a time in nanoseconds. */
    void encode_until(std::int64_t time_ns, const Progress& progress) {
        for (Track& track : tracks_) {
            while (track.encoder && fill_pending(track) && track.pending->dts <= time_ns) {
                av_packet_rescale_ts(track.pending.get(), kNanoseconds, track.out->time_base);
                write(track, *track.pending);
                av_packet_unref(track.pending.get());
                if (progress) {
                    progress(track.encoder->progress());
                }
            }
        }
    }

    // False when the encoder has no more packets.
    static bool fill_pending(Track& track) {
        if (!track.pending) {
            track.pending = make_packet();
        }
        return track.pending->data || track.encoder->next(*track.pending);
    }

    // Some demuxers give equal or falling times, which most muxers refuse.
    void write(Track& track, AVPacket& packet) {
        packet.dts += packet.dts == AV_NOPTS_VALUE ? 0 : track.shift;
        packet.pts += packet.pts == AV_NOPTS_VALUE ? 0 : track.shift;
        const bool strict = !(output_->oformat->flags & AVFMT_TS_NONSTRICT);
        if (strict && packet.dts != AV_NOPTS_VALUE && track.last_dts != AV_NOPTS_VALUE &&
            packet.dts <= track.last_dts) {
            packet.dts = track.last_dts + 1;
            packet.pts =
                packet.pts == AV_NOPTS_VALUE ? packet.pts : std::max(packet.pts, packet.dts);
        }
        track.last_dts = packet.dts == AV_NOPTS_VALUE ? track.last_dts : packet.dts;
        packet.stream_index = track.out->index;
        packet.pos = -1;
        check(with_memory([&] { return av_interleaved_write_frame(output_.get(), &packet); }),
              "the result cannot be stored");
    }

    const MediaFile& file_;
    MediaInput input_;
    OutputContext output_;
    std::vector<Track> tracks_;
    std::vector<std::string> notes_;
};

}  // namespace

// Everything up to the first byte: whether muxer and encoder accept the streams.
void try_media(const MediaFile& file, const std::vector<NewSound>& sounds) {
    Remuxer(file, sounds).begin("");
}

std::vector<std::string> write_media(const MediaFile& file,
                                     const std::vector<NewSound>& sounds,
                                     const std::string& to,
                                     const Progress& progress) {
    Remuxer remuxer(file, sounds);
    remuxer.begin(to);
    remuxer.run(progress);
    return remuxer.notes();
}

}  // namespace quorvane::media
