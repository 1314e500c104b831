#include "leveling/media/read_stretches.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "leveling/media/media_file.h"
#include "leveling/media/media_input.h"

namespace quorvane::media {
namespace {

/** What a codec needs in front of a place until it gives the sound of there; Opus needs 80 ms.
 */
constexpr double kLeadSeconds = 0.3;

class StretchDecoder {
  public:
    StretchDecoder(const std::string& path, int stream)
        : input_(path),
          sound_(probe_media(path, {stream, false, ""}).sounds.front()),
          stream_(input_.stream(sound_.stream)) {
        input_.read_only([&](int index) { return index == sound_.stream; });
        const AVCodec* decoder = avcodec_find_decoder(sound_.codec);
        codec_ = make_codec(*decoder);
        check(avcodec_parameters_to_context(codec_.get(), stream_.codecpar), "its sound");
        codec_->pkt_timebase = stream_.time_base;
        codec_->thread_count = 1;
        check(with_memory([&] { return avcodec_open2(codec_.get(), decoder, nullptr); }),
              "its sound cannot be decoded");
        if (stream_.start_time != AV_NOPTS_VALUE) {
            start_s_ = seconds_of(stream_.start_time);
        }
    }

    /** Puts the stretch behind the samples. */
    void read(const Stretch& stretch, Samples& samples) {
        find(stretch.from_s - kLeadSeconds);
        from_s_ = stretch.from_s;
        wanted_ = stretch.seconds;
        done_ = 0;
        const Packet packet = make_packet();
        while (!has_all(samples) && input_.read(*packet)) {
            if (packet->stream_index == sound_.stream) {
                decode(packet.get(), samples);
            }
            av_packet_unref(packet.get());
        }
        if (!has_all(samples)) {
            decode(nullptr, samples);
        }
        fill_up(samples);
    }

    std::int64_t frames() const { return frames_; }

  private:
    double seconds_of(std::int64_t time) const {
        return static_cast<double>(time) * av_q2d(stream_.time_base);
    }

    /** Continues at a packet before the place; at the beginning where the place lies before it. */
    void find(double at_s) {
        const auto time = static_cast<std::int64_t>(
            std::floor((std::max(at_s, 0.0) + start_s_) / av_q2d(stream_.time_base)));
        check(av_seek_frame(&input_.context(), sound_.stream, time, AVSEEK_FLAG_BACKWARD),
              "a place in it cannot be found");
        avcodec_flush_buffers(codec_.get());
    }

    std::int64_t wanted_frames(const Samples& samples) const {
        return static_cast<std::int64_t>(wanted_ * samples.sample_rate_hz);
    }

    bool has_all(const Samples& samples) const {
        return samples.sample_rate_hz != 0 && done_ >= wanted_frames(samples);
    }

    /** Damage costs the packet that it is in. */
    void decode(AVPacket* packet, Samples& samples) {
        with_memory([&] { return avcodec_send_packet(codec_.get(), packet); });
        while (with_memory([&] { return avcodec_receive_frame(codec_.get(), frame_.get()); }) >=
               0) {
            take(samples);
            av_frame_unref(frame_.get());
        }
    }

    /** Takes what of the decoded frame lies in the stretch. */
    void take(Samples& samples) {
        if (samples.sample_rate_hz == 0) {
            samples.sample_rate_hz = frame_->sample_rate;
            samples.channels = frame_->ch_layout.nb_channels;
        }
        if (frame_->sample_rate != samples.sample_rate_hz ||
            frame_->ch_layout.nb_channels != samples.channels ||
            frame_->best_effort_timestamp == AV_NOPTS_VALUE) {
            return;
        }
        const double at_s = seconds_of(frame_->best_effort_timestamp) - start_s_;
        const std::int64_t begin = std::llround((at_s - from_s_) * samples.sample_rate_hz);
        const std::int64_t first = std::max<std::int64_t>(0, -begin);
        const std::int64_t count =
            std::min<std::int64_t>(frame_->nb_samples, wanted_frames(samples) - begin) - first;
        if (count <= 0) {
            return;
        }
        convert();
        const auto channels = static_cast<std::size_t>(samples.channels);
        const auto from = buffer_.begin() + static_cast<std::ptrdiff_t>(first) * samples.channels;
        samples.values.insert(
            samples.values.end(), from,
            from + static_cast<std::ptrdiff_t>(static_cast<std::size_t>(count) * channels));
        done_ += count;
        frames_ += count;
    }

    /** The decoded frame as interleaved doubles. */
    void convert() {
        if (!resampler_) {
            SwrContext* context = nullptr;
            AVChannelLayout layout{};
            av_channel_layout_default(&layout, frame_->ch_layout.nb_channels);
            const int code = swr_alloc_set_opts2(
                &context, &layout, AV_SAMPLE_FMT_DBL, frame_->sample_rate, &layout,
                static_cast<AVSampleFormat>(frame_->format), frame_->sample_rate, 0, nullptr);
            resampler_.reset(context);
            check(code < 0 ? code : swr_init(context), "its samples cannot be converted");
        }
        buffer_.resize(static_cast<std::size_t>(frame_->nb_samples) *
                       static_cast<std::size_t>(frame_->ch_layout.nb_channels));
        auto* out = reinterpret_cast<std::uint8_t*>(buffer_.data());
        auto** in = const_cast<const std::uint8_t**>(frame_->extended_data);
        check(swr_convert(resampler_.get(), &out, frame_->nb_samples, in, frame_->nb_samples),
              "its samples cannot be converted");
    }

    void fill_up(Samples& samples) const {
        const std::int64_t missing = wanted_frames(samples) - done_;
        samples.values.resize(samples.values.size() +
                              static_cast<std::size_t>(std::max<std::int64_t>(missing, 0)) *
                                  static_cast<std::size_t>(samples.channels));
    }

    MediaInput input_;
    Sound sound_;
    const AVStream& stream_;
    CodecContext codec_;
    Frame frame_ = make_frame();
    Resampler resampler_;
    std::vector<double> buffer_;
    double start_s_ = 0;  // time of the first sample
    double from_s_ = 0;   // of the stretch that is read
    double wanted_ = 0;   // seconds of it
    std::int64_t done_ = 0;
    std::int64_t frames_ = 0;  // of all stretches, without silence put behind them
};

}  // namespace

Samples read_stretches(const std::string& path, int stream, const std::vector<Stretch>& stretches) {
    StretchDecoder decoder(path, stream);
    Samples samples;
    for (const Stretch& stretch : stretches) {
        decoder.read(stretch, samples);
    }
    if (decoder.frames() == 0) {
        throw FileError("has no sound there");
    }
    return samples;
}

}  // namespace quorvane::media
