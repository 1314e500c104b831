#include "leveling/preparation/limited_rendering.h"

#include <algorithm>
#include <cstddef>
#include <vector>

#include "Common/stream/helper_thread.h"
#include "leveling/publish/limiter.h"

namespace quorvane {
namespace {

// Bins on their way from the reader to the limiter, where there are two threads.
constexpr std::size_t kPieces = 16;

/**
 * Limits, rounds and writes what was read, while the next is read. Gives the output each frame
 * together with the recording's, for which the limiter is late.
 */
class LimitedOutput {
  public:
    LimitedOutput(const SF_INFO& recording, double ceiling, OutputFile& out)
        : channels_(static_cast<std::size_t>(recording.channels)),
          limiter_(recording.channels, recording.samplerate, 1, ceiling),
          out_(out),
          pieces_(stream::HelperThread::is_used() ? kPieces : 1),
          lane_([this] { limit_next(); }, static_cast<int>(kPieces)) {}

    /** What the reader has just read. */
    void take(CurveReader& reader, long long frames, Peaks peaks) {
        Piece& piece = pieces_[taken_ % pieces_.size()];
        reader.swap_buffers(piece.result, piece.original);
        piece.frames = static_cast<std::size_t>(frames);
        piece.peaks = peaks;
        lane_.add();
        ++taken_;
        // The piece that is filled next must be free.
        lane_.finish(static_cast<long long>(taken_ + 1) - static_cast<long long>(pieces_.size()));
    }

    void finish() {
        lane_.finish(static_cast<long long>(taken_));
        limiter_.finish(ready_);
        pass_on();
        out_.finish();
    }

  private:
    struct Piece {
        std::vector<double> result = {};
        std::vector<double> original = {};
        std::size_t frames = 0;
        Peaks peaks = Peaks::kPossible;
    };

    /** The lane's work, in order. */
    void limit_next() {
        const Piece& piece = pieces_[limited_++ % pieces_.size()];
        const auto count = static_cast<std::ptrdiff_t>(piece.frames * channels_);
        originals_.insert(originals_.end(), piece.original.begin(), piece.original.begin() + count);
        limiter_.expect(piece.peaks);
        limiter_.process(piece.result.data(), piece.frames, ready_);
        pass_on();
    }

    void pass_on() {
        out_.take(ready_.data(), originals_.data(),
                  static_cast<long long>(ready_.size() / channels_));
        originals_.erase(originals_.begin(),
                         originals_.begin() + static_cast<std::ptrdiff_t>(ready_.size()));
        ready_.clear();
    }

    std::size_t channels_;
    TruePeakLimiter limiter_;
    OutputFile& out_;
    std::vector<double> ready_ = {};
    std::vector<double> originals_ = {};
    std::vector<Piece> pieces_;  // a ring
    std::size_t taken_ = 0;
    std::size_t limited_ = 0;
    stream::HelperThread::Lane lane_;  // last: its destructor waits
};

/** Whether the piece that ends in the middle of a bin, or the one behind it, may hold a peak. */
Peaks peaks_near(const std::vector<bool>& bins, std::size_t bin) {
    const std::size_t begin = bin - std::min<std::size_t>(bin, 1);
    const std::size_t end = std::min(bin + 1, bins.size());
    return std::any_of(bins.begin() + static_cast<std::ptrdiff_t>(std::min(begin, end)),
                       bins.begin() + static_cast<std::ptrdiff_t>(end), [](bool is) { return is; })
               ? Peaks::kPossible
               : Peaks::kNone;
}

}  // namespace

void render_limited(CurveReader& reader,
                    const SF_INFO& recording,
                    const Limit& limit,
                    OutputFile& out,
                    const std::function<void(double)>& progress) {
    LimitedOutput limited(recording, limit.ceiling, out);
    std::size_t bin = 0;  // in whose middle the piece ends
    for (long long frames = 0; (frames = reader.next()) > 0; ++bin) {
        limited.take(reader, frames, peaks_near(limit.bins, bin));
        progress(static_cast<double>(bin) / static_cast<double>(limit.bins.size()));
    }
    limited.finish();
}

}  // namespace quorvane
