#include "Common/stream/stretches.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <exception>
#include <memory>
#include <new>
#include <numeric>
#include <stdexcept>

#include "Common/audio/finite.h"
#include "Common/reporting/run_state.h"
#include "Common/stream/helper_thread.h"
#include "Common/stream/pump.h"

/*
 * A receiver that sums needs each sum before it can add the next sample, and the order of the
 * samples is part of the result, so a pass takes as long as its additions one after the other. Two
 * halves of the recording do not depend on each other. The owner reads a block of the first half,
 * then one of the second, and so on; each half has a lane and a short ring of blocks, in bytes,
 * which the thread that processes them decodes.
 */
namespace stream {

namespace {

constexpr long long kBlocks = 4;       // of a half's ring
constexpr long long kLeastBlocks = 8;  // of a recording that is worth two threads
using Stretches = std::vector<Stretch>::const_iterator;

long long frames_of(Stretches begin, Stretches end) {
    return std::accumulate(begin, end, 0LL, [](long long sum, const Stretch& stretch) {
        return sum + std::max(stretch.frames, 0LL);
    });
}

/** The stretches from one place in a recording on. */
class Half {
  public:
    Half(SoundSource& source, Stretches begin, Stretches end, long long position)
        : source_(source),
          stretch_(begin),
          end_(end),
          position_(position),
          block_frames_(block_frames_for(source.info().channels, 1)),
          samples_(static_cast<std::size_t>(block_frames_ * source.info().channels)) {
        // All at once: nothing may fail for want of memory once the first block has been read.
        for (Block& block : ring_) {
            block.bytes.resize(static_cast<std::size_t>(block_frames_ * source.frame_bytes()));
        }
    }

    /** Reads the next block and has it taken; false at the end of the half. */
    bool read_next() {
        while (stretch_ != end_ && read_of_stretch_ >= stretch_->frames) {
            ++stretch_;
            read_of_stretch_ = 0;
        }
        if (stretch_ == end_ || position_ >= source_.info().frames) {
            return false;
        }
        if (read_ >= kBlocks) {
            lane_.finish(read_ - kBlocks + 1);
        }
        Block& block = ring_[static_cast<std::size_t>(read_ % kBlocks)];
        block.receiver = stretch_->receiver;
        block.first_frame = position_;
        if (!source_.seek(position_)) {
            throw std::runtime_error(source_.name() + ": cannot be read from frame " +
                                     std::to_string(position_) + " on");
        }
        block.frames = source_.read_bytes(
            block.bytes.data(), std::min(stretch_->frames - read_of_stretch_, block_frames_));
        if (block.frames == 0) {
            stretch_ = end_;  // the file is shorter than its header says
            return false;
        }
        position_ += block.frames;
        read_of_stretch_ += block.frames;
        ++read_;
        lane_.add();
        return true;
    }

    void finish() { lane_.finish(read_); }

  private:
    struct Block {
        Receiver* receiver = nullptr;
        long long first_frame = 0;
        long long frames = 0;
        std::vector<unsigned char> bytes;
    };

    /** The lane's work. */
    void take_next() {
        Block& block = ring_[static_cast<std::size_t>(taken_++ % kBlocks)];
        source_.decode(block.bytes.data(), samples_.data(), block.frames);
        FiniteGuard(source_.name(), source_.info(), block.first_frame)
            .check(samples_.data(), block.frames * source_.info().channels);
        block.receiver->process(samples_.data(), block.frames);
    }

    SoundSource& source_;
    Stretches stretch_;  // the one that is being read
    Stretches end_;
    long long read_of_stretch_ = 0;  // frames
    long long position_;
    const long long block_frames_;
    std::vector<double> samples_;  // of the block that the lane is at
    std::array<Block, kBlocks> ring_;
    long long read_ = 0;                                   // blocks
    long long taken_ = 0;                                  // of these
    HelperThread::Lane lane_{[this] { take_next(); }, 2};  // the last member: it waits
};

/** Both in turn. What is wrong with the first half is told first. */
void take_side_by_side(Half& first, Half& second) {
    std::exception_ptr failure;
    bool more_of_second = true;
    const auto take_second = [&](const auto& step) {
        try {
            more_of_second = step();
        } catch (const ss_cancel_exception&) {
            throw;
        } catch (...) {
            failure = std::current_exception();
            more_of_second = false;
        }
    };
    for (bool more = true; more || more_of_second;) {
        check_cancelled();
        more = more && first.read_next();
        if (more_of_second) {
            take_second([&] { return second.read_next(); });
        }
    }
    first.finish();
    if (!failure) {
        take_second([&] {
            second.finish();
            return false;
        });
    }
    if (failure) {
        std::rethrow_exception(failure);
    }
}

}  // namespace

void pump_stretches(SoundSource& source, const std::vector<Stretch>& stretches) {
    const long long position = source.position();
    const long long frames =
        std::min(frames_of(stretches.begin(), stretches.end()), source.info().frames - position);
    if (HelperThread::is_used() && source.gives_bytes() &&
        frames >= kLeastBlocks * block_frames_for(source.info().channels, 1)) {
        auto middle = stretches.begin();
        long long before = 0;
        for (; middle != stretches.end() && 2 * before < frames; ++middle) {
            before += std::max(middle->frames, 0LL);
        }
        std::unique_ptr<Half> first;
        std::unique_ptr<Half> second;
        try {
            first = std::make_unique<Half>(source, stretches.begin(), middle, position);
            second = std::make_unique<Half>(source, middle, stretches.end(), position + before);
        } catch (const std::bad_alloc&) {  // NOLINT(bugprone-empty-catch): in turn needs less
        }
        if (second) {
            take_side_by_side(*first, *second);
            for (const Stretch& stretch : stretches) {
                stretch.receiver->finish();
            }
            return;
        }
    }
    source.announce(kToTheEnd);  // all together: most are short
    for (const Stretch& stretch : stretches) {
        pump(source, *stretch.receiver, stretch.frames);
    }
}

}  // namespace stream
