#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "Common/stream/helper_thread.h"

namespace level_engine {

/**
 * Fetches a recording's frames in large pieces, which the helper thread begins before they are
 * asked for. Frames are bytes here: to decode them is left to the one who takes them, since samples
 * that one processor has made cost another one more than bytes that it has read.
 */
class ReadAhead {
  public:
    struct ReadResult {
        long long frames = 0;
        std::string problem;  // the read error, "" at the end of the file
    };

    /** Writes the next frames to bytes, fewer than requested at the end. */
    using Fetch = std::function<ReadResult(unsigned char* bytes, long long frames)>;

    /** Frames that stand one behind the other. */
    struct Span {
        unsigned char* bytes;
        long long frames;
    };

    /** Whether there is a processor for it, and work. */
    static bool is_worthwhile(std::size_t frame_bytes, long long frames);

    /** frames: the most that are fetched. Throws std::bad_alloc without room for the pieces. */
    ReadAhead(Fetch fetch, std::size_t frame_bytes, long long frames);

    /**
     * The next frames, most_frames or fewer; none at the end or after a problem. The bytes are the
     * taker's until the next call.
     */
    Span next(long long most_frames);

    /** Why the frames end, "" while they do not or when there are none beyond. */
    const std::string& problem() const { return problem_; }

    /** Whether all that was asked for has been taken. */
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
    long long left_;         // frames that are still to be taken
    long long current_ = 0;  // the piece that frames are taken from, counted from the first
    long long taken_ = 0;    // frames of it
    std::vector<Piece> pieces_;
    // What follows belongs to the lane.
    long long to_fetch_;
    long long fetching_ = 0;           // piece
    stream::HelperThread::Lane lane_;  // the last member: it waits before the others go
};

}  // namespace level_engine

using level_engine::ReadAhead;
