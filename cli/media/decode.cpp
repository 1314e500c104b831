#include "cli/media/decode.h"

#include <fmt/format.h>

#include <algorithm>
#include <sndfile.hh>
#include <vector>

#include "cli/audio/sound_file.h"

namespace cli::media {
namespace {

constexpr int kLeastFineClock = 8000;  // ticks per second; coarser ones round durations
constexpr int kFloatBits = 24;         // that a 32-bit float holds exactly
constexpr std::int64_t kLongestNs = 14 * 86400LL * 1000000000;

std::int64_t duration_of(const AVFrame& frame) {
#if LIBAVUTIL_VERSION_MAJOR >= 58
    return frame.duration;
#else
    return frame.pkt_duration;
#endif
}

class SoundDecoder {
  public:
    SoundDecoder(const std::string& path, const Sound& sound, const std::string& to)
        : input_(path), sound_(sound), stream_(input_.stream(sound.stream)) {
        input_.read_only([&](int index) { return index == sound_.stream; });
        const AVCodec* decoder = avcodec_find_decoder(sound.codec);
        codec_ = make_codec(*decoder);
        check(avcodec_parameters_to_context(codec_.get(), stream_.codecpar), "its sound");
        codec_->pkt_timebase = stream_.time_base;
        codec_->flags |= AV_CODEC_FLAG_BITEXACT;
        codec_->thread_count = 1;
        check(with_memory([&] { return avcodec_open2(codec_.get(), decoder, nullptr); }),
              "its sound cannot be decoded");
        result_.file = to;
    }

    DecodedSound run(const Progress& progress) {
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
        send(nullptr);
        finish();
        if (result_.frames == 0) {
            throw FileError(result_.lost_packets ? "its sound cannot be decoded: it is damaged"
                                                 : "its sound has no samples");
        }
        result_.bit_rate =
            av_rescale(bytes_ * 8, result_.sample_rate_hz, std::max<std::int64_t>(packed_, 1));
        return result_;
    }

  private:
    void send(AVPacket* packet) {
        const int sent = with_memory([&] { return avcodec_send_packet(codec_.get(), packet); });
        if (sent == AVERROR(ENOMEM)) {
            throw std::bad_alloc();
        }
        result_.lost_packets += sent < 0 && sent != AVERROR_EOF;
        for (;;) {
            const int got =
                with_memory([&] { return avcodec_receive_frame(codec_.get(), frame_.get()); });
            if (got == AVERROR(EAGAIN) || got == AVERROR_EOF) {
                return;
            }
            if (got < 0) {
                ++result_.lost_packets;
                return;
            }
            take(*frame_);
            av_frame_unref(frame_.get());
        }
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
        if (frame.best_effort_timestamp != AV_NOPTS_VALUE) {
            mark(av_rescale_q(frame.best_effort_timestamp, stream_.time_base, kNanoseconds));
        }
        av_frame_move_ref(held_.get(), &frame);
    }

    // A container with a fine clock ends a padded sound with a packet that is shorter than its
    // block.
    void finish() {
        int count = held_->nb_samples;
        const AVRational clock = stream_.time_base;
        if (clock.num == 1 && clock.den >= kLeastFineClock && duration_of(*held_) > 0) {
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
        if (count <= 0) {
            return;
        }
        packed_ += frame.nb_samples;
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
        const sf_count_t written = wide_ ? out_.writef(reinterpret_cast<const double*>(out), count)
                                         : out_.writef(reinterpret_cast<const float*>(out), count);
        if (written != count) {
            throw FileError(fmt::format("its decoded sound cannot be stored: {}", out_.strError()));
        }
        result_.frames += count;
        av_frame_unref(held_.get());
    }

    MediaInput input_;
    const Sound& sound_;
    const AVStream& stream_;
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
    std::int64_t packed_ = 0;  // samples with the padding
    DecodedSound result_;
};

}  // namespace

DecodedSound decode_sound(const std::string& path,
                          const Sound& sound,
                          const std::string& to,
                          const Progress& progress) {
    return SoundDecoder(path, sound, to).run(progress);
}

}  // namespace cli::media
