#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "Common/stream/helper_thread.h"

namespace level_engine {

/**
 * Reads a recording's frames in large pieces, which the helper thread reads before they are needed.
 * Frames are bytes here and the caller decodes them: to move the larger decoded samples from one
 * processor's cache to another's costs more than to move the bytes.
 */
class ReadAhead {
  public:
    struct ReadResult {
        long long frames = 0;
        std::string problem;  // the read error, "" at the end of the file
    };

    /** Writes the next frames to bytes, fewer than requested at the end. */
    using Fetch = std::function<ReadResult(unsigned char* bytes, long long frames)>;

    /** Consecutive frames, encoded as in the file. */
    struct Span {
        unsigned char* bytes;
        long long frames;
    };

    /** Whether a second processor may be used and there are enough frames. */
    static bool is_worthwhile(std::size_t frame_bytes, long long frames);

    /** frames: the most to read. Throws std::bad_alloc without memory for the pieces. */
    ReadAhead(Fetch fetch, std::size_t frame_bytes, long long frames);

    /**
     * Returns the next frames, at most most_frames; none at the end or after an error. The bytes
     * are valid until the next call and may be changed.
     */
    Span next(long long most_frames);

    /** The read error that ended the frames, "" if there was none. */
    const std::string& problem() const { return problem_; }

    /** Whether all requested frames have been returned. */
    bool is_used_up() const { return left_ == 0; }

  private:
    struct Piece {
        std::vector<unsigned char> bytes;
        ReadResult result;
    };

    void fetch_piece();

    Fetch fetch_;
    std::size_t frame_bytes_;
    long long piece_frames_;
    std::string problem_;
    long long left_;         // frames that are still to be returned
    long long current_ = 0;  // the piece that frames are taken from, counted from the first
    long long taken_ = 0;    // frames of it
    std::vector<Piece> pieces_;
    // What follows belongs to the lane.
    long long to_fetch_;
    long long fetching_ = 0;           // piece
    stream::HelperThread::Lane lane_;  // last: its destructor waits
};

}  // namespace level_engine

using level_engine::ReadAhead;
