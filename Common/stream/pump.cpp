#include "Common/stream/pump.h"

#include <algorithm>
#include <boost/scoped_array.hpp>
#include <cstddef>
#include <utility>

#include "Common/audio/finite.h"
#include "Common/reporting/log.h"
#include "Common/reporting/run_state.h"
#include "Common/ss_util.h"

namespace stream {

namespace {

thread_local int block_samples = kBlockSamples;

}  // namespace

long long block_frames_for(int channels, long long unit_frames) {
    // Whole units, one at least: a link that works bin by bin seldom has to carry one over. And
    // fours of them, since links take that many side by side.
    constexpr long long kTogether = 4;
    long long units = block_samples / channels / unit_frames;
    units -= units > kTogether ? units % kTogether : 0;
    return std::max(1LL, units) * unit_frames;
}

namespace {

template <class Advance>
void run(Source& source,
         Receiver& receiver,
         long long most_frames,
         long long unit_frames,
         const LoopStyle& style,
         const Advance& advance) {
    const int channels = source.info().channels;
    const long long block_frames = block_frames_for(channels, unit_frames);
    boost::scoped_array<double> block;
    allocate(block, static_cast<std::size_t>(block_frames * channels), style.array, style.source);
    // Looked at here once for all steps: a single NaN would spread through every sum and filter.
    FiniteGuard guard(source.name(), source.info(), source.position());
    source.announce(most_frames);
    for (long long left = most_frames; left > 0;) {
        const long long frames = source.read(block.get(), std::min(left, block_frames));
        if (frames == 0) {
            break;
        }
        check_cancelled();
        if (style.not_finite == NotFinite::kRefuse) {
            guard.check(block.get(), frames * channels);
        } else {
            guard.note(block.get(), frames * channels);
        }
        receiver.process(block.get(), frames);
        advance(frames);
        left -= frames;
    }
    // Not on an exception: the step fails then, and its output counts for nothing.
    receiver.finish();
}

}  // namespace

void use_block_samples(int samples) {
    block_samples = samples;
}

ProgressPacer::ProgressPacer(progress_range::Range range, long long unit_frames, Fraction fraction)
    : progress_(range.low, range.high), unit_frames_(unit_frames), fraction_(std::move(fraction)) {
    if (kShowDuration) {
        ShowDuration(gStart);
    }
}

void ProgressPacer::advance(long long frames) {
    for (frames_ += frames; frames_ >= unit_frames_; frames_ -= unit_frames_) {
        show(fraction_(units_++));
    }
}

void ProgressPacer::finish() {
    // The last unit counts as a whole one, and the step ends at the end of its range.
    if (frames_ > 0) {
        frames_ = 0;
        show(fraction_(units_++));
    }
}

void pump(Source& source,
          Receiver& receiver,
          ProgressPacer& pacer,
          long long most_frames,
          const LoopStyle& style) {
    run(source, receiver, most_frames, pacer.unit_frames(), style,
        [&pacer](long long frames) { pacer.advance(frames); });
    pacer.finish();
}

void pump(Source& source,
          Receiver& receiver,
          ProgressPacer&& pacer,
          long long most_frames,
          const LoopStyle& style) {
    pump(source, receiver, pacer, most_frames, style);
}

void pump(Source& source, Receiver& receiver, long long most_frames, const LoopStyle& style) {
    run(source, receiver, most_frames, 1, style, [](long long) {});
}

}  // namespace stream
