#pragma once

#include <functional>
#include <limits>

#include "Common/reporting/progress.h"
#include "Common/stream/stream.h"

namespace stream {

/**
 * Decides when a loop shows its progress. A step's fractions belong to its units, the bins of a
 * meter or the blocks of a filter. They are shown as if the loop read unit by unit, whatever its
 * block size, so the progress of a step stays the same.
 */
class ProgressPacer {
  public:
    using Fraction = std::function<double(long long unit)>;

    /** fraction: 0.0 to 1.0 of the step's range after unit 0, 1 and so on. */
    ProgressPacer(progress_range::Range range, long long unit_frames, Fraction fraction);

    /** Counts frames more as done. */
    void advance(long long frames);

    /** Counts a last unit that is not full as done. */
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
 * Sets the block size of this thread in samples; a block holds at least one unit of the pacer. No
 * result depends on it, which the tests check with other sizes.
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
 * Reads at most most_frames frames from a source's position on, passes each block to the receiver
 * and calls its finish. A block holds a whole number of the pacer's units. Throws
 * std::runtime_error that names source and frame for a sample that is not finite,
 * ss_cancel_exception, ss_alloc_error, and what source and receiver throw.
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
