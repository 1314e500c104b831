#pragma once

#include <functional>
#include <limits>

#include "Common/reporting/progress.h"
#include "Common/stream/stream.h"

namespace stream {

/**
 * When a loop shows its progress. The fractions of a step belong to units of its own, the bins of a
 * meter or the blocks of a filter; they are shown as if the loop read unit by unit, whatever it
 * reads at a time.
 */
class ProgressPacer {
  public:
    using Fraction = std::function<double(long long unit)>;

    /** fraction: 0.0 to 1.0 of the step's range after unit 0, 1 and so on. */
    ProgressPacer(progress_range::Range range, long long unit_frames, Fraction fraction);

    /** So many frames more are done. */
    void advance(long long frames);

    /** There are no more: a unit that is not full is done, too. */
    void finish();

    /** Throws ss_cancel_exception while the run is cancelled. */
    void show(double fraction) { progress_.show(fraction); }

    long long unit_frames() const { return unit_frames_; }

  private:
    CProgress progress_;
    long long unit_frames_;
    Fraction fraction_;
    long long frames_ = 0;
    long long units_ = 0;
};

// Large enough that the calls per block do not count, small enough for a processor's cache.
constexpr int kBlockSamples = 32768;

/**
 * How much a block of this thread holds from now on, a unit of the pacer at least. No result
 * depends on it, which tests show with it.
 */
void use_block_samples(int samples);

/** Frames of a block, a multiple of the unit. */
long long block_frames_for(int channels, long long unit_frames);

constexpr long long kToTheEnd = std::numeric_limits<long long>::max();

/** What a loop does with samples that are infinite or not numbers. */
enum class NotFinite { kRefuse, kNoteAsDefect };

/** How a step wants its loop. */
struct LoopStyle {
    // In the message when the block cannot be allocated: array and source file.
    const char* array = "block";
    const char* source = "Common/stream/pump";
    NotFinite not_finite = NotFinite::kRefuse;
};

/**
 * Reads a source from its position on, most_frames at most, hands every block to the receiver and
 * tells it the end. A block is large and holds whole units of the pacer. Throws std::runtime_error
 * naming source and frame for a sample that is not finite, ss_cancel_exception, ss_alloc_error, and
 * what source and receiver throw.
 */
void pump(Source& source,
          Receiver& receiver,
          ProgressPacer& pacer,
          long long most_frames = kToTheEnd,
          const LoopStyle& style = LoopStyle());
void pump(Source& source,
          Receiver& receiver,
          ProgressPacer&& pacer,
          long long most_frames = kToTheEnd,
          const LoopStyle& style = LoopStyle());

/** The same without progress. */
void pump(Source& source,
          Receiver& receiver,
          long long most_frames,
          const LoopStyle& style = LoopStyle());

}  // namespace stream
