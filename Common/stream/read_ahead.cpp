#include "Common/stream/read_ahead.h"

#include <algorithm>
#include <utility>

namespace level_engine {

namespace {

constexpr int kWorthwhilePieces = 4;  // less than that is read before another thread is awake

}  // namespace

bool ReadAhead::is_worthwhile(std::size_t frame_bytes, long long frames) {
    return stream::HelperThread::is_used() &&
           frames > kWorthwhilePieces * stream::kPieceBytes / static_cast<long long>(frame_bytes);
}

ReadAhead::ReadAhead(Fetch fetch, std::size_t frame_bytes, long long frames)
    : fetch_(std::move(fetch)),
      frame_bytes_(frame_bytes),
      piece_frames_(std::max(1LL, stream::kPieceBytes / static_cast<long long>(frame_bytes))),
      left_(frames),
      pieces_(stream::kPieces),
      to_fetch_(frames),
      lane_([this] { fetch_piece(); }, stream::kPieces) {
    // All at once: a piece that is due must not fail for want of memory.
    for (Piece& piece : pieces_) {
        piece.bytes.resize(static_cast<std::size_t>(piece_frames_) * frame_bytes_);
    }
    for (int i = 0; i < stream::kPieces; ++i) {
        lane_.add();
    }
}

/** The lane's work. Behind a short piece there is nothing. */
void ReadAhead::fetch_piece() {
    Piece& piece = pieces_[static_cast<std::size_t>(fetching_++ % stream::kPieces)];
    const long long wanted = std::min(piece_frames_, to_fetch_);
    piece.result = {0, ""};
    if (wanted > 0) {
        piece.result = fetch_(piece.bytes.data(), wanted);
        to_fetch_ = piece.result.frames == wanted ? to_fetch_ - wanted : 0;
    }
}

ReadAhead::Span ReadAhead::next(long long most_frames) {
    for (;;) {
        lane_.finish(current_ + 1);
        Piece& piece = pieces_[static_cast<std::size_t>(current_ % stream::kPieces)];
        const long long frames = std::min(most_frames, piece.result.frames - taken_);
        if (frames > 0) {
            unsigned char* const bytes =
                piece.bytes.data() + static_cast<std::size_t>(taken_) * frame_bytes_;
            taken_ += frames;
            left_ -= frames;
            return {bytes, frames};
        }
        if (piece.result.frames < piece_frames_) {
            problem_ = piece.result.problem;
            left_ = 0;
            return {nullptr, 0};
        }
        ++current_;
        taken_ = 0;
        lane_.add();
    }
}

}  // namespace level_engine
