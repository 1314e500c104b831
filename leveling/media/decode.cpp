#include "leveling/media/decode.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <optional>
#include <sndfile.hh>
#include <vector>

#include "leveling/audio/sound_file.h"
#include "leveling/facts/no_room.h"
#include "leveling/media/bare_frames.h"
#include "leveling/media/channel_layout.h"
#include "leveling/media/gapless.h"

namespace quorvane::media {
namespace {

constexpr int kLeastFineClock = 8000;  // ticks per second; coarser ones round durations
constexpr int kFloatBits = 24;         // that a 32-bit float holds exactly
// Two weeks: a longer recording is a broken time stamp, which would fill the disk with silence.
constexpr std::int64_t kLongestNs = 14 * 86400LL * 1000000000;
// Shorter jumps come from the rounding of clocks that count in milliseconds.
constexpr std::int64_t kLeastHoleNs = 2000000;
// FFmpeg's count of Vorbis samples is off by some of a block for a moment where blocks change size.
constexpr std::int64_t kLeastVorbisHoleNs = 25000000;
constexpr std::int64_t kLongestHoleNs = 600LL * 1000000000;  // where no length bounds it
// Containers round their lengths, and some count samples that are not heard.
constexpr std::int64_t kMissingNs = 1000000000;
// In a file that is damaged, a longer gap between time stamps is lost sound.
constexpr std::int64_t kMissingOfDamagedNs = 100000000;
constexpr std::size_t kSilentFrames = 65536;  // at a time
// FFmpeg has it as a macro, AV_TIME_BASE_Q, that is C and no C++.
constexpr AVRational kFileClock = {1, AV_TIME_BASE};

/** Which pauses in the times of a sound stand for lost data. */
enum class Pauses { Kept, AreDamage };

class SoundDecoder {
  public:
    SoundDecoder(const std::string& path, const Sound& sound, const std::string& to, Pauses pauses)
        : path_(path),
          input_(path),
          sound_(sound),
          stream_(input_.stream(sound.stream)),
          length_ns_(input_.layout().length_ns),
          pauses_(pauses),
          gapless_(gapless_of(input_, stream_)),
          is_bare_(BareFrames::are_in(input_.demuxer()) && has_holes(path, input_.demuxer())) {
        input_.read_only([&](int index) { return index == sound_.stream; });
        const AVCodec* decoder = avcodec_find_decoder(sound.codec);
        codec_ = make_codec(*decoder);
        check(avcodec_parameters_to_context(codec_.get(), stream_.codecpar), "its sound");
        codec_->pkt_timebase = stream_.time_base;
        codec_->flags |= AV_CODEC_FLAG_BITEXACT;
        codec_->thread_count = 1;
        if (has_reliable_checksums(sound.codec)) {
            codec_->err_recognition = AV_EF_CRCCHECK | AV_EF_EXPLODE;
        }
        check(with_memory([&] { return avcodec_open2(codec_.get(), decoder, nullptr); }),
              "its sound cannot be decoded");
        result_.file = to;
    }

    DecodedSound run(const Progress& progress) {
        errors_ = errors_at_start_ = logged_errors();
        if (is_bare_) {
            BareFrames frames(path_, input_.demuxer());
            read_bare_frames(frames);
            lost_frames_ += frames.missing();
        } else {
            read_container(progress);
        }
        send(nullptr);
        finish();
        look_at_end();
        result_.read_errors = input_.read_errors();
        if (result_.frames == 0) {
            throw FileError(result_.lost_packets ? "its sound cannot be decoded: it is damaged"
                                                 : "its sound has no samples");
        }
        result_.bit_rate =
            av_rescale(bytes_ * 8, result_.sample_rate_hz, std::max<std::int64_t>(packed_, 1));
        return result_;
    }

  private:
    /** Its demuxer drops damaged data without a word; nothing else makes pauses there. */
    bool is_lone_asf() const {
        return input_.demuxer() == "asf" && input_.context().nb_streams == 1;
    }

    /** Those whose encoders always write them, and rightly. */
    static bool has_reliable_checksums(AVCodecID codec) {
        return codec == AV_CODEC_ID_FLAC || codec == AV_CODEC_ID_AC3 || codec == AV_CODEC_ID_EAC3 ||
               codec == AV_CODEC_ID_WAVPACK;
    }

    void read_container(const Progress& progress) {
        const Packet packet = make_packet();
        while (input_.read(*packet)) {
            if (packet->stream_index == sound_.stream) {
                if (bytes_ == 0 && packet->pts != AV_NOPTS_VALUE) {
                    result_.start_ns = av_rescale_q(packet->pts, stream_.time_base, kNanoseconds);
                }
                bytes_ += packet->size;
                send(packet.get());
                progress(input_.fraction_read());
            }
            av_packet_unref(packet.get());
        }
    }

    /** A stream without times, with holes: silence of as many frames as are lost fills each. */
    void read_bare_frames(BareFrames& frames) {
        const Packet packet = make_packet();
        while (const std::optional<BareFrames::Frame> frame = frames.next()) {
            lost_frames_ += frame->lost;
            check(av_new_packet(packet.get(), static_cast<int>(frame->size)), "its sound");
            std::copy_n(frame->bytes, frame->size, packet->data);
            bytes_ += packet->size;
            send(packet.get());
            av_packet_unref(packet.get());
        }
    }

    void send(AVPacket* packet) {
        const int sent = with_memory([&] { return avcodec_send_packet(codec_.get(), packet); });
        if (sent == AVERROR(ENOMEM)) {
            throw std::bad_alloc();
        }
        if (sent < 0 && sent != AVERROR_EOF) {
            lose_packet();
        }
        for (;;) {
            const int got =
                with_memory([&] { return avcodec_receive_frame(codec_.get(), frame_.get()); });
            if (got == AVERROR(EAGAIN) || got == AVERROR_EOF) {
                return;
            }
            if (got < 0) {
                lose_packet();
                return;
            }
            take(*frame_);
            av_frame_unref(frame_.get());
        }
    }

    void lose_packet() {
        ++result_.lost_packets;
        ++lost_frames_;
        is_damaged_ = true;
    }

    void take(AVFrame& frame) {
        if (!started_) {
            start(frame);
        }
        if (frame.sample_rate != result_.sample_rate_hz ||
            frame.ch_layout.nb_channels != result_.channels) {
            throw FileError(fmt::format(
                "its sound changes from {} Hz, {} channels to {} Hz, {} channels after {:.1f} s",
                result_.sample_rate_hz, result_.channels, frame.sample_rate,
                frame.ch_layout.nb_channels,
                static_cast<double>(result_.frames) / result_.sample_rate_hz));
        }
        write_held(held_->nb_samples);
        if (is_bare_) {
            result_.timeline.add(0, 0);
            write_silence(lost_frames_ * frame.nb_samples);
        } else if (frame.best_effort_timestamp != AV_NOPTS_VALUE) {
            const std::int64_t delay_ns =
                gapless_ ? result_.timeline.nanoseconds(gapless_->delay) : 0;
            const std::int64_t time_ns =
                av_rescale_q(frame.best_effort_timestamp, stream_.time_base, kNanoseconds) -
                delay_ns;
            fill_hole(time_ns);
            mark(time_ns);
            if (is_lone_asf()) {
                pauses_ = Pauses::AreDamage;
            }
        }
        lost_frames_ = 0;
        av_frame_move_ref(held_.get(), &frame);
    }

    /** Puts silence in front of a frame with this time for what was lost before it. */
    void fill_hole(std::int64_t time_ns) {
        const bool damaged =
            is_damaged_ || pauses_ == Pauses::AreDamage || logged_errors() != errors_;
        is_damaged_ = false;
        errors_ = logged_errors();
        if (!damaged) {
            return;
        }
        if (result_.timeline.marks().empty()) {
            result_.timeline.add(0, std::max<std::int64_t>(result_.start_ns, 0));
        }
        const std::int64_t hole_ns = time_ns - result_.timeline.time_of(result_.frames);
        const std::optional<std::int64_t> end_ns = promised_end();
        const std::int64_t least_ns =
            sound_.codec == AV_CODEC_ID_VORBIS ? kLeastVorbisHoleNs : kLeastHoleNs;
        const bool possible = end_ns ? time_ns <= *end_ns + kMissingNs : hole_ns <= kLongestHoleNs;
        if (hole_ns >= least_ns && possible) {
            write_silence(result_.timeline.samples(hole_ns));
        }
    }

    void write_silence(std::int64_t count) {
        result_.loss.add(result_.frames, count);
        const auto channels = static_cast<std::size_t>(result_.channels);
        const std::vector<float> silence(kSilentFrames * channels, 0.0F);
        while (count > 0) {
            const auto some = std::min<std::int64_t>(count, kSilentFrames);
            errno = 0;
            if (out_.writef(silence.data(), some) != some) {
                fail_to_store();
            }
            result_.frames += some;
            count -= some;
        }
    }

    [[noreturn]] void fail_to_store() const {
        const int error = errno;
        const std::string cause =
            fmt::format("its decoded sound cannot be stored: {}", out_.strError());
        fail_write(error, cause);
    }

    /** Where the container says that the sound ends; nothing where that is an estimate. */
    std::optional<std::int64_t> promised_end() const {
        if (length_ns_ > 0) {
            return length_ns_;
        }
        const AVFormatContext& context = input_.context();
        if (BareFrames::are_in(input_.demuxer()) ||
            context.duration_estimation_method == AVFMT_DURATION_FROM_BITRATE) {
            return std::nullopt;
        }
        if (stream_.duration != AV_NOPTS_VALUE && stream_.duration > 0) {
            const std::int64_t start =
                stream_.start_time == AV_NOPTS_VALUE ? 0 : stream_.start_time;
            return av_rescale_q(start + stream_.duration, stream_.time_base, kNanoseconds);
        }
        if (context.duration > 0 && (context.nb_streams == 1 || input_.read_errors() > 0)) {
            const std::int64_t start =
                context.start_time == AV_NOPTS_VALUE ? 0 : context.start_time;
            return av_rescale_q(start + context.duration, kFileClock, kNanoseconds);
        }
        return std::nullopt;
    }

    void look_at_end() {
        const std::optional<std::int64_t> end_ns = promised_end();
        if (is_bare_) {
            result_.loss.missing = lost_frames_ * last_frame_samples_;
        }
        if (!end_ns || *end_ns > kLongestNs) {
            return;
        }
        const bool damaged = result_.lost_packets > 0 || input_.read_errors() > 0 ||
                             !result_.loss.gaps.empty() || logged_errors() != errors_at_start_;
        const std::int64_t missing_ns = *end_ns - result_.timeline.time_of(result_.frames);
        if (missing_ns > (damaged ? kMissingOfDamagedNs : kMissingNs)) {
            result_.loss.missing = result_.timeline.samples(missing_ns);
        }
    }

    // A container with a fine clock ends a padded sound with a packet that is shorter than its
    // block.
    void finish() {
        int count = held_->nb_samples;
        const AVRational clock = stream_.time_base;
        if (!gapless_ && clock.num == 1 && clock.den >= kLeastFineClock &&
            duration_of(*held_) > 0) {
            const std::int64_t told =
                av_rescale_q(duration_of(*held_), clock, {1, result_.sample_rate_hz});
            count = static_cast<int>(std::min<std::int64_t>(count, told));
        }
        write_held(count);
    }

    void mark(std::int64_t time_ns) {
        if (time_ns > kLongestNs || time_ns < -kLongestNs) {
            throw FileError(
                fmt::format("its sound has a time of {:.0f} days, which no recording "
                            "has",
                            static_cast<double>(time_ns) / 86400e9));
        }
        result_.timeline.add(result_.frames, time_ns);
    }

    void start(const AVFrame& first) {
        started_ = true;
        result_.sample_rate_hz = first.sample_rate;
        result_.channels = first.ch_layout.nb_channels;
        result_.timeline = Timeline(first.sample_rate);
        // The header becomes that of a plain WAV when the data fits.
        wide_ = sound_.bits > kFloatBits;
        out_ = open_to_write(result_.file,
                             SF_FORMAT_RF64 | (wide_ ? SF_FORMAT_DOUBLE : SF_FORMAT_FLOAT),
                             result_.channels, result_.sample_rate_hz);
        out_.command(SFC_RF64_AUTO_DOWNGRADE, nullptr, SF_TRUE);
        result_.layout = layout_name(first.ch_layout);
        name_places(first.ch_layout, out_);
    }

    void prepare(const AVFrame& frame) {
        format_ = frame.format;
        SwrContext* resampler = nullptr;
        AVChannelLayout layout{};
        av_channel_layout_default(&layout, result_.channels);
        const int code = swr_alloc_set_opts2(
            &resampler, &layout, wide_ ? AV_SAMPLE_FMT_DBL : AV_SAMPLE_FMT_FLT, frame.sample_rate,
            &layout, static_cast<AVSampleFormat>(frame.format), frame.sample_rate, 0, nullptr);
        to_float_.reset(resampler);
        check(code < 0 ? code : swr_init(resampler), "its samples cannot be converted");
    }

    void write_held(int count) {
        const AVFrame& frame = *held_;
        if (gapless_) {
            count =
                static_cast<int>(std::min<std::int64_t>(count, gapless_->frames - result_.frames));
        }
        if (count <= 0) {
            return;
        }
        packed_ += frame.nb_samples;
        last_frame_samples_ = frame.nb_samples;
        if (frame.format != format_) {
            prepare(frame);
        }
        const auto samples =
            static_cast<std::size_t>(count) * static_cast<std::size_t>(result_.channels);
        buffer_.resize(samples * (wide_ ? sizeof(double) : sizeof(float)));
        std::uint8_t* out = buffer_.data();
        auto** in = const_cast<const std::uint8_t**>(frame.extended_data);
        check(swr_convert(to_float_.get(), &out, count, in, count),
              "its samples cannot be converted");
        errno = 0;
        const sf_count_t written = wide_ ? out_.writef(reinterpret_cast<const double*>(out), count)
                                         : out_.writef(reinterpret_cast<const float*>(out), count);
        if (written != count) {
            fail_to_store();
        }
        result_.frames += count;
        av_frame_unref(held_.get());
    }

    std::string path_;
    MediaInput input_;
    const Sound& sound_;
    const AVStream& stream_;
    std::int64_t length_ns_;  // that the container states and the libraries do not report
    Pauses pauses_;
    std::optional<Gapless> gapless_;  // where the demuxer leaves that to its caller
    bool is_bare_;                    // a stream without times that has holes
    CodecContext codec_;
    Frame frame_ = make_frame();
    Frame held_ = make_frame();  // the last one, not yet written
    Resampler to_float_;
    int format_ = AV_SAMPLE_FMT_NONE;
    bool started_ = false;
    bool wide_ = false;
    SndfileHandle out_;
    std::vector<std::uint8_t> buffer_;
    std::int64_t bytes_ = 0;
    std::int64_t packed_ = 0;       // samples with the padding
    std::int64_t lost_frames_ = 0;  // since the last one
    std::int64_t last_frame_samples_ = 0;
    bool is_damaged_ = false;  // since the last frame
    std::int64_t errors_ = 0;  // logged up to the last frame
    std::int64_t errors_at_start_ = 0;
    DecodedSound result_;
};

}  // namespace

DecodedSound decode_sound(const std::string& path,
                          const Sound& sound,
                          const std::string& to,
                          const Progress& progress) {
    return SoundDecoder(path, sound, to, Pauses::Kept).run(progress);
}

Decoded decode_damaged(const std::string& path, const std::string& to) {
    const MediaFile file = probe_media(path, {});
    SoundDecoder decoder(path, file.sounds.front(), to, Pauses::AreDamage);
    const DecodedSound sound = decoder.run([](double) {});
    return {sound.frames, "", sound.loss, sound.sample_rate_hz};
}

}  // namespace quorvane::media
