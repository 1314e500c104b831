#include "leveling/media/sound_encoder.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>

#include "leveling/audio/sound_file.h"
#include "leveling/media/bit_rates.h"
#include "leveling/media/channel_layout.h"

extern "C" {
#include <libavutil/opt.h>
}

namespace quorvane::media {
namespace {

constexpr int kBlockFrames = 1024;  // for codecs without a frame size of their own
constexpr int kSkippedBlocks = 2;   // by WMA's decoders
// The longest block of the format.
constexpr int kMostVorbisBlock = 8192;
// What FFmpeg's encoder writes.
constexpr int kMostFlacBits = 24;
/** Shorter jumps of the clock are a recorder's jitter, not missing sound. */
constexpr std::int64_t kLeastGapNs = 20000000;
constexpr std::int64_t kBitRatePerChannel = 96000;  // where the source has none of its own

/** The formats that the encoder takes, in its order. The library changed the call. */
std::vector<AVSampleFormat> sample_formats(const AVCodec& encoder) {
    const AVSampleFormat* formats = nullptr;
#if LIBAVCODEC_VERSION_INT >= AV_VERSION_INT(61, 13, 100)
    const void* list = nullptr;
    avcodec_get_supported_config(nullptr, &encoder, AV_CODEC_CONFIG_SAMPLE_FORMAT, 0, &list,
                                 nullptr);
    formats = static_cast<const AVSampleFormat*>(list);
#else
    formats = encoder.sample_fmts;
#endif
    std::vector<AVSampleFormat> result;
    for (; formats && *formats != AV_SAMPLE_FMT_NONE; ++formats) {
        result.push_back(*formats);
    }
    return result;
}

/** Vorbis takes frames of one size and gives packets of two others. */
bool has_free_packets(const AVCodecContext& codec) {
    return codec.codec_id == AV_CODEC_ID_VORBIS;
}

bool is_float(AVSampleFormat format) {
    const AVSampleFormat packed = av_get_packed_sample_fmt(format);
    return packed == AV_SAMPLE_FMT_FLT || packed == AV_SAMPLE_FMT_DBL;
}

/**
 * For lossy codecs a floating-point format, else the largest; for lossless ones the smallest that
 * holds the bits.
 */
AVSampleFormat choose_format(const AVCodec& encoder, int bits) {
    const std::vector<AVSampleFormat> formats = sample_formats(encoder);
    if (formats.empty()) {
        throw FileError(fmt::format("the encoder {} cannot be used", encoder.name));
    }
    // The smallest cost wins; 1000 and more is a last resort.
    const auto cost = [&](AVSampleFormat format) {
        const int size = 8 * av_get_bytes_per_sample(format);
        if (bits == 0) {
            return is_float(format) ? 0 : 1000 - size;
        }
        return (size < bits ? 1000 : 0) + size + (is_float(format) ? 1 : 0);
    };
    return *std::min_element(formats.begin(), formats.end(),
                             [&](AVSampleFormat a, AVSampleFormat b) { return cost(a) < cost(b); });
}

}  // namespace

SoundEncoder::SoundEncoder(const Request& request)
    : request_(request), rate_(request.sample_rate_hz) {
    const std::int64_t wanted =
        request.bit_rate > 0 ? request.bit_rate : kBitRatePerChannel * request.channels;
    const std::int64_t bit_rate =
        nearest_legal(wanted, request.choice.encoder->id, request.sample_rate_hz);
    const std::string other = other_name_of(request.layout);
    if (other.empty()) {
        open_near(bit_rate, request.layout);
        return;
    }
    try {
        open_near(bit_rate, request.layout);
    } catch (const FileError&) {
        try {
            open_near(bit_rate, other);
            return;
        } catch (const FileError&) {
            // What was wrong with the sound's own layout says more.
        }
        throw;
    }
}

// Some encoders take any bit rate within bounds that depend on rate and channels and that they do
// not tell; the nearest one on either side is searched for.
void SoundEncoder::open_near(std::int64_t bit_rate, const std::string& layout) {
    // Factors of the wanted bit rate, from the nearest to the furthest.
    constexpr double kSteps[] = {1, 1.1, 0.9, 1.25, 0.8, 1.5, 0.65, 2, 0.5, 3, 0.33, 0.25, 0.16};
    for (double step : kSteps) {
        try {
            open(static_cast<std::int64_t>(static_cast<double>(bit_rate) * step), layout);
            return;
        } catch (const FileError&) {
            // A codec without loss has no bit rate to try others of.
            if (step == kSteps[std::size(kSteps) - 1] || request_.bits > 0) {
                throw;
            }
        }
    }
}

void SoundEncoder::open(std::int64_t bit_rate, const std::string& layout) {
    const AVCodec& encoder = *request_.choice.encoder;
    codec_ = make_codec(encoder);
    codec_->sample_rate = request_.sample_rate_hz;
    codec_->time_base = {1, request_.sample_rate_hz};
    if (layout.empty() || request_.channels <= 2 ||
        av_channel_layout_from_string(&codec_->ch_layout, layout.c_str()) < 0) {
        av_channel_layout_default(&codec_->ch_layout, request_.channels);
    }
    codec_->sample_fmt = choose_format(encoder, request_.bits);
    codec_->flags |= AV_CODEC_FLAG_BITEXACT;
    // The bytes must not depend on the number of processors.
    codec_->thread_count = 1;
    if (request_.global_header) {
        codec_->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    }
    const AVCodecDescriptor* descriptor = avcodec_descriptor_get(encoder.id);
    if (descriptor && descriptor->props & AV_CODEC_PROP_LOSSLESS) {
        codec_->bits_per_raw_sample = request_.bits;
        if (av_get_bytes_per_sample(codec_->sample_fmt) == 4 && request_.bits == 0) {
            codec_->bits_per_raw_sample = kMostFlacBits;
        }
    } else {
        codec_->bit_rate = bit_rate;
    }
    if (request_.lead_in == LeadIn::LeftOut && encoder.id == AV_CODEC_ID_MP3) {
        // The first packet kept may not need the bits of those left out.
        av_opt_set_int(codec_->priv_data, "reservoir", 0, 0);
    }
    if (with_memory([&] { return avcodec_open2(codec_.get(), &encoder, nullptr); }) < 0) {
        throw FileError(
            fmt::format("its sound ({} Hz, {} channels{}) is not taken by the encoder "
                        "{}: {}",
                        request_.sample_rate_hz, request_.channels,
                        request_.channels > 2 && !layout.empty() ? ", " + layout : "", encoder.name,
                        reason(AVERROR(EINVAL))));
    }
    SwrContext* resampler = nullptr;
    const int code =
        swr_alloc_set_opts2(&resampler, &codec_->ch_layout, codec_->sample_fmt, codec_->sample_rate,
                            &codec_->ch_layout, AV_SAMPLE_FMT_DBL, codec_->sample_rate, 0, nullptr);
    from_double_.reset(resampler);
    check(code < 0 ? code : swr_init(resampler), "its samples cannot be converted");
}

// PCM and some others take any number of samples at a time.
bool SoundEncoder::variable_frames() const {
    return codec_->frame_size == 0 ||
           (codec_->codec->capabilities & AV_CODEC_CAP_VARIABLE_FRAME_SIZE) != 0;
}

int SoundEncoder::frame_size() const {
    return variable_frames() ? kBlockFrames : codec_->frame_size;
}

// How much silence moves the sound's first sample to where decoders begin to play.
std::int64_t SoundEncoder::silence_before() const {
    if (variable_frames() || has_free_packets(*codec_) || request_.lead_in == LeadIn::Kept) {
        return 0;
    }
    const int delay = codec_->initial_padding;
    if (request_.lead_in == LeadIn::Skipped) {
        return std::max(0, kSkippedBlocks * frame_size() - delay);
    }
    const int over = delay % frame_size();
    return over ? frame_size() - over : 0;
}

void SoundEncoder::begin(const std::string& file, const DecodedSound& source) {
    in_ = open_to_read(file);
    marks_ = source.timeline.marks();
    frames_ = source.frames;
    start_ns_ = source.start_ns;
    rate_ = Timeline(request_.sample_rate_hz);
    silence_ = silence_before();
    first_ = silence_;
    end_ = std::numeric_limits<std::int64_t>::max();
    if (marks_.empty()) {
        anchors_.push_back({first_, 0});
    } else {
        anchors_.push_back({first_, marks_.front().time_ns});
        next_mark_ = 1;
    }
    buffer_.resize(static_cast<std::size_t>(frame_size()) *
                   static_cast<std::size_t>(request_.channels));
}

// The sound has come to a sample whose time does not follow from the one before.
void SoundEncoder::reach_mark() {
    const Timeline::Mark& mark = marks_[next_mark_];
    const Timeline::Mark& last = marks_[next_mark_ - 1];
    const std::int64_t gap_ns =
        mark.time_ns - last.time_ns - rate_.nanoseconds(mark.sample - last.sample);
    if (gap_ns >= kLeastGapNs && !variable_frames()) {
        const std::int64_t over = (position_ + codec_->initial_padding) % frame_size();
        const std::int64_t fitting = over ? frame_size() - over : 0;
        const std::int64_t gap = rate_.samples(gap_ns);
        silence_ = has_free_packets(*codec_) ? gap : std::min(fitting, gap);
        quiet_.push_back({position_, position_ + silence_});
    }
    anchors_.push_back({position_ + silence_, mark.time_ns});
    ++next_mark_;
}

// Fills the buffer with so many frames, or less: at the end of the sound, and before a jump of its
// clock where frames may be short.
int SoundEncoder::fill(int count) {
    int filled = 0;
    const auto channels = static_cast<std::size_t>(request_.channels);
    while (filled < count) {
        double* const out = buffer_.data() + static_cast<std::size_t>(filled) * channels;
        const std::int64_t room = count - filled;
        if (silence_ == 0 && next_mark_ < marks_.size() && sound_ == marks_[next_mark_].sample) {
            reach_mark();
            if (variable_frames() && filled > 0) {
                break;
            }
            continue;
        }
        std::int64_t got = std::min(room, silence_);
        if (silence_ > 0) {
            std::fill_n(out, static_cast<std::size_t>(got) * channels, 0.0);
            silence_ -= got;
        } else {
            const std::int64_t until = next_mark_ < marks_.size()
                                           ? marks_[next_mark_].sample - sound_
                                           : std::numeric_limits<std::int64_t>::max();
            got = in_.readf(out, std::min(room, until));
            if (got <= 0 && end_ == std::numeric_limits<std::int64_t>::max()) {
                if (sound_ != frames_) {
                    throw FileError("its leveled sound could not be read to the end");
                }
                end_ = position_;
                // An encoder that keeps nothing back gives its last samples only for more input.
                const bool keeps = (codec_->codec->capabilities & AV_CODEC_CAP_DELAY) != 0;
                silence_ = keeps ? 0 : codec_->initial_padding;
                next_mark_ = marks_.size();
                if (silence_ > 0) {
                    continue;
                }
            }
            if (got <= 0) {
                break;
            }
            sound_ += got;
        }
        filled += static_cast<int>(got);
        position_ += got;
    }
    return filled;
}

// Integer encoders of fewer bits than their sample format cut the rest off; rounding is nearer.
void SoundEncoder::quantize(int count) {
    const int size = 8 * av_get_bytes_per_sample(codec_->sample_fmt);
    const int bits = codec_->bits_per_raw_sample;
    if (is_float(codec_->sample_fmt) || bits <= 0 || bits >= size) {
        return;
    }
    const double scale = std::ldexp(1.0, bits - 1);
    const auto samples =
        static_cast<std::size_t>(count) * static_cast<std::size_t>(request_.channels);
    for (std::size_t i = 0; i < samples; ++i) {
        buffer_[i] = std::clamp(std::rint(buffer_[i] * scale), -scale, scale - 1) / scale;
    }
}

void SoundEncoder::feed() {
    const std::int64_t start = position_;
    const int count = fill(frame_size());
    if (count == 0) {
        draining_ = true;
        check(avcodec_send_frame(codec_.get(), nullptr), "its sound cannot be encoded");
        return;
    }
    quantize(count);
    AVFrame& frame = *frame_;
    frame.nb_samples = count;
    frame.format = codec_->sample_fmt;
    frame.sample_rate = codec_->sample_rate;
    frame.pts = start;
    check(av_channel_layout_copy(&frame.ch_layout, &codec_->ch_layout), "its sound");
    check(av_frame_get_buffer(&frame, 0), "its sound");
    const auto* in = reinterpret_cast<const std::uint8_t*>(buffer_.data());
    check(swr_convert(from_double_.get(), frame.extended_data, count, &in, count),
          "its samples cannot be converted");
    const int sent = with_memory([&] { return avcodec_send_frame(codec_.get(), &frame); });
    av_frame_unref(&frame);
    check(sent, "its sound cannot be encoded");
}

std::int64_t SoundEncoder::time_of(std::int64_t position) {
    while (anchors_.size() > 1 && anchors_[1].position <= position) {
        anchors_.pop_front();
    }
    return anchors_.front().time_ns + rate_.nanoseconds(position - anchors_.front().position);
}

// The libraries' own count goes wrong behind the last sample.
std::int64_t SoundEncoder::position_of(const AVPacket& packet) {
    if (variable_frames() || has_free_packets(*codec_)) {
        return packet.pts;
    }
    return packets_++ * frame_size() - codec_->initial_padding;
}

bool SoundEncoder::is_left_out(std::int64_t position, std::int64_t length) const {
    // What decoders give out by themselves when they are drained needs no packet.
    const std::int64_t end = request_.lead_in == LeadIn::Skipped ? end_ - frame_size() : end_;
    if (position >= end || (request_.lead_in == LeadIn::LeftOut && position < first_)) {
        return true;
    }
    return has_free_packets(*codec_) &&
           std::any_of(quiet_.begin(), quiet_.end(), [&](const Quiet& quiet) {
               return position >= quiet.from + kMostVorbisBlock &&
                      position + length <= quiet.to - kMostVorbisBlock;
           });
}

bool SoundEncoder::next(AVPacket& packet) {
    for (;;) {
        const int code = with_memory([&] { return avcodec_receive_packet(codec_.get(), &packet); });
        if (code == AVERROR_EOF) {
            return false;
        }
        if (code == AVERROR(EAGAIN) && !draining_) {
            feed();
            continue;
        }
        check(code, "its sound cannot be encoded");
        const std::int64_t position = position_of(packet);
        if (is_left_out(position, packet.duration)) {
            av_packet_unref(&packet);
            continue;
        }
        set_times(packet, position);
        return true;
    }
}

void SoundEncoder::set_times(AVPacket& packet, std::int64_t position) {
    // The end is not known before the sound was read; a position before the sound is negative.
    const std::int64_t length = std::min(position + packet.duration, end_) - position;
    packet.pts = packet.dts = time_of(position);
    packet.duration = rate_.nanoseconds(length);
    packet.flags |= AV_PKT_FLAG_KEY;
    // A packet that is not heard begins where the source's did: its own time may lie before the
    // file's start.
    const bool unheard =
        has_free_packets(*codec_) || (request_.lead_in == LeadIn::Skipped && position < first_);
    if (!started_ && unheard) {
        packet.pts = packet.dts = std::min(start_ns_, anchors_.front().time_ns);
    }
    started_ = true;
}

double SoundEncoder::progress() const {
    return in_.frames() > 0 ? static_cast<double>(sound_) / static_cast<double>(in_.frames()) : 1;
}

}  // namespace quorvane::media
