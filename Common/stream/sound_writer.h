#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "Common/audio/sample_codec.h"
#include "Common/audio/sound_handle.h"
#include "Common/stream/helper_thread.h"
#include "Common/stream/stream.h"

namespace level_engine {

/** A write to a sound file that failed or was short. */
struct WriteFailure {
    SoundHandle handle;  // null once the file is closed
    std::string path;
    long long expected;  // samples
    long long written;
    std::string reason;  // the library's
};

/**
 * Ends a chain: writes a sound file. finish closes the file; a short write, a failed close or a
 * file on disk that is shorter than what was written is an error.
 */
class SoundWriter : public stream::Receiver {
  public:
    /** Throws what a step throws. */
    using OnFailure = std::function<void(const WriteFailure&)>;

    /**
     * piece_frames: how many frames are written at a time; each call's frames are split into such
     * pieces. A lossy encoder gives other bits for other pieces; plain samples ignore this. No
     * other owner may use the handle after finish.
     */
    SoundWriter(const SoundHandle& handle,
                const std::string& path,
                int channels,
                long long piece_frames,
                OnFailure on_failure);

    void process(double* samples, long long frames) override;
    void finish() override;

    /** Whether the file holds plain samples, so that take_bytes works. */
    bool takes_bytes() const { return codec_.is_plain(); }

    /** Bytes of a frame in the file, 0 unless takes_bytes. */
    long long frame_bytes() const { return frame_bytes_; }

    /** Encodes samples to the file's format. May be called from any thread. */
    void encode(const double* samples, unsigned char* bytes, long long frames) const;

    /** The next frames, encoded. */
    void take_bytes(const unsigned char* bytes, long long frames);

  private:
    /** Encoded frames on their way to the file. */
    struct Piece {
        std::unique_ptr<unsigned char[]> bytes;  // not set to zero, which would touch all pages
        long long frames = 0;
        long long written = 0;
    };

    void write(const double* samples, long long frames);
    template <class Fill>
    void fill_pieces(long long frames, const Fill& fill);
    void hand_over_piece();
    void write_piece();
    void feed_tap(Piece& piece);
    void finish_pieces(long long count);
    void fail_piece(long long written);
    void check(long long frames, long long written);

    Piece& piece(long long index) { return pieces_[index % pieces_.size()]; }

    SoundHandle handle_;
    std::string path_;
    int channels_;
    long long piece_frames_;
    OnFailure on_failure_;
    SampleCodec codec_;
    long long frame_bytes_ = 0;
    long long piece_capacity_ = 0;  // frames
    std::vector<Piece> pieces_;     // a ring; one where no thread helps
    long long filling_ = 0;         // the piece that frames are put into, counted from the first
    long long finished_ = 0;        // pieces
    long long taken_ = 0;           // frames
    long long frames_ = 0;          // that have arrived
    // What follows belongs to the lane.
    long long writing_ = 0;  // piece
    std::unique_ptr<stream::Receiver> tap_;
    std::unique_ptr<double[]> tap_block_;  // of kTapSamples
    stream::HelperThread::Lane lane_;      // last: its destructor waits
};

}  // namespace level_engine

using level_engine::SoundWriter;
using level_engine::WriteFailure;
