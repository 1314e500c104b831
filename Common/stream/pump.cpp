#include "Common/stream/pump.h"

#include <algorithm>
#include <boost/scoped_array.hpp>
#include <cstddef>
#include <utility>

#include "Common/audio/finite.h"
#include "Common/reporting/log.h"
#include "Common/reporting/run_state.h"
#include "Common/ss_util.h"
#include "Common/stream/helper_thread.h"

namespace stream {

namespace {

// Large enough that the calls per block do not count, small enough for a processor's cache.
constexpr int kBlockSamples = 32768;

struct Block {
    double* samples;
    long long frames;
};

/** Reads one block ahead of the one that is worked on. */
class BlockReader {
  public:
    BlockReader(Source& source, long long block_frames, long long most_frames)
        : source_(source), block_frames_(block_frames), left_(most_frames) {
        for (boost::scoped_array<double>& block : blocks_) {
            allocate(block, static_cast<std::size_t>(block_frames * source.info().channels),
                     "block", "Common/stream/pump");
        }
    }

    /** Begins to read the block after the one that wait has returned; that one stays as it is. */
    void read_next() {
        next_.samples = blocks_[next_.samples == blocks_[0].get() ? 1 : 0].get();
        reading_.start([this] {
            const long long wanted = std::min(left_, block_frames_);
            next_.frames = wanted > 0 ? source_.read(next_.samples, wanted) : 0;
            left_ -= next_.frames;
        });
    }

    /** The block that was begun; no frames after the last. Throws what the source threw. */
    Block wait() {
        reading_.wait();
        return next_;
    }

  private:
    Source& source_;
    long long block_frames_;
    long long left_;
    boost::scoped_array<double> blocks_[2];
    Block next_{nullptr, 0};
    HelperThread::Task reading_;  // the last member: it waits before the others go
};

template <class Advance>
void run(Source& source,
         Receiver& receiver,
         long long most_frames,
         long long unit_frames,
         const Advance& advance) {
    const int channels = source.info().channels;
    // Whole units, one at least: a link that works bin by bin seldom has to carry one over.
    const long long units = kBlockSamples / channels / unit_frames;
    const long long block_frames = std::max(1LL, units) * unit_frames;
    BlockReader reader(source, block_frames, most_frames);
    // Looked at here once for all steps: a single NaN would spread through every sum and filter.
    FiniteGuard guard(source.name(), source.info(), source.position());
    reader.read_next();
    for (Block block = reader.wait(); block.frames > 0; block = reader.wait()) {
        check_cancelled();
        reader.read_next();
        guard.check(block.samples, block.frames * channels);
        receiver.take(block.samples, block.frames);
        advance(block.frames);
    }
    // Not on an exception: the step fails then, and its output counts for nothing.
    receiver.end();
}

}  // namespace

Pace::Pace(progress_range::Range range, long long unit_frames, Fraction fraction)
    : progress_(range.low, range.high), unit_frames_(unit_frames), fraction_(std::move(fraction)) {
    if (kShowDuration) {
        ShowDuration(gStart);
    }
}

void Pace::advance(long long frames) {
    for (frames_ += frames; frames_ >= unit_frames_; frames_ -= unit_frames_) {
        show(fraction_(units_++));
    }
}

void Pace::finish() {
    // The last unit counts as a whole one, and the step ends at the end of its range.
    if (frames_ > 0) {
        frames_ = 0;
        show(fraction_(units_++));
    }
}

void pump(Source& source, Receiver& receiver, Pace& pace, long long most_frames) {
    run(source, receiver, most_frames, pace.unit_frames(),
        [&pace](long long frames) { pace.advance(frames); });
    pace.finish();
}

void pump(Source& source, Receiver& receiver, Pace&& pace, long long most_frames) {
    pump(source, receiver, pace, most_frames);
}

void pump(Source& source, Receiver& receiver, long long most_frames) {
    run(source, receiver, most_frames, 1, [](long long) {});
}

}  // namespace stream
