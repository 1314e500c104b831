#pragma once

#include <deque>
#include <sndfile.hh>
#include <string>
#include <vector>

#include "leveling/media/decode.h"
#include "leveling/media/handles.h"
#include "leveling/media/media_file.h"

namespace quorvane::media {

/**
 * What becomes of an encoder's first packets, which hold what it puts before the sound (its delay).
 */
enum class LeadIn {
    Kept,     // the container tells players how much to leave out
    LeftOut,  // it cannot: the first packet kept begins with the sound's first sample
    Skipped,  // the codec's decoders leave out a fixed number of samples by themselves
};

/**
 * Encodes a sound file to packets that carry the times of its timeline. A gap in the timeline
 * becomes a gap between packets: silence fills the packet before it up to its end, so that the
 * sound behind the gap begins with a packet, at its time.
 */
class SoundEncoder {
  public:
    struct Request {
        EncoderChoice choice;
        int sample_rate_hz;
        int channels;
        std::string layout;     // see Sound
        std::int64_t bit_rate;  // bits per second, for lossy codecs; the nearest legal one is taken
        int bits;               // sample size for lossless codecs, 0: lossy source
        LeadIn lead_in;
        bool global_header;  // the container holds the codec's header, not the packets
    };

    /** Throws FileError when the encoder refuses. */
    explicit SoundEncoder(const Request& request);

    const AVCodecContext& context() const { return *codec_; }

    /**
     * Encodes a file with the times of the source that it came from, whose sample rate, channels
     * and frames it has.
     */
    void begin(const std::string& file, const DecodedSound& source);

    /** The next packet, with its times in nanoseconds; false at the end. */
    bool next(AVPacket& packet);

    /** How much of the sound has been encoded, 0 to 1. */
    double progress() const;

  private:
    /** From the encoder's sample `position` on, sound is heard from `time_ns`. */
    struct Anchor {
        std::int64_t position;
        std::int64_t time_ns;
    };

    /** Silence that stands for a gap, in the encoder's samples. */
    struct Quiet {
        std::int64_t from;
        std::int64_t to;
    };

    void open(std::int64_t bit_rate, const std::string& layout);
    void open_near(std::int64_t bit_rate, const std::string& layout);
    void feed();
    int fill(int count);
    void reach_mark();
    std::int64_t time_of(std::int64_t position);
    std::int64_t silence_before() const;
    void quantize(int count);
    bool variable_frames() const;
    int frame_size() const;
    std::int64_t position_of(const AVPacket& packet);
    void set_times(AVPacket& packet, std::int64_t position);
    bool is_left_out(std::int64_t position, std::int64_t length) const;

    Request request_;
    CodecContext codec_;
    Resampler from_double_;
    Frame frame_ = make_frame();
    SndfileHandle in_;
    std::vector<double> buffer_;
    std::vector<Timeline::Mark> marks_;
    std::size_t next_mark_ = 0;
    Timeline rate_;
    std::deque<Anchor> anchors_;
    std::vector<Quiet> quiet_;
    std::int64_t packets_ = 0;
    std::int64_t sound_ = 0;     // frames read
    std::int64_t position_ = 0;  // frames given to the encoder
    std::int64_t silence_ = 0;   // frames of it that come before the next of the sound
    std::int64_t frames_ = 0;    // that the sound must have
    std::int64_t start_ns_ = 0;  // of the source's first packet
    std::int64_t first_ = 0;     // the encoder's position of the first frame to be heard
    std::int64_t end_ = 0;       // behind the last one, once the sound was read
    bool started_ = false;
    bool draining_ = false;
};

}  // namespace quorvane::media
