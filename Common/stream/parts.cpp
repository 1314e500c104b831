#include "Common/stream/parts.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <memory>
#include <new>
#include <vector>

#include "Common/audio/finite.h"
#include "Common/reporting/run_state.h"
#include "Common/stream/helper_thread.h"

/*
 * A pass spends most of its time on decoding, processing and encoding blocks. Where blocks do not
 * depend on each other, both threads do that, each with the doubles in its own cache: they exchange
 * only the file's bytes. The blocks form a ring and go to two lanes in turn; the owner reads into
 * the ring, removes the blocks in order and passes their bytes to the writer. It does blocks that
 * have not started itself, so the load balances whatever else the helper does.
 */
namespace stream {

namespace {

constexpr int kLanes = 2;
constexpr long long kBlocks = 6;  // of the ring: enough that neither thread waits for the other

/** Ends a part's chain: encodes the samples to the file's format. */
class Encoder : public Receiver {
  public:
    Encoder(const SoundWriter& writer, std::vector<unsigned char>& bytes)
        : writer_(writer), bytes_(bytes) {}

    void process(double* samples, long long frames) override {
        const std::size_t room = bytes_.size();
        bytes_.resize(room + static_cast<std::size_t>(frames * writer_.frame_bytes()));
        writer_.encode(samples, bytes_.data() + room, frames);
    }

  private:
    const SoundWriter& writer_;
    std::vector<unsigned char>& bytes_;
};

/** One run over a recording on two threads. */
class TwoAtATime {
  public:
    TwoAtATime(SoundSource& source, SoundWriter& writer, const Part& part, long long block_frames)
        : source_(source), writer_(writer), part_(part), block_frames_(block_frames) {
        // All at once: no allocation may fail after the first block has been read.
        for (Block& block : ring_) {
            block.in.resize(static_cast<std::size_t>(block_frames * source.frame_bytes()));
            block.out.reserve(static_cast<std::size_t>(block_frames * writer.frame_bytes()));
        }
        for (std::vector<double>& samples : samples_) {
            samples.resize(static_cast<std::size_t>(block_frames * source.info().channels));
        }
    }

    void go(ProgressPacer& pacer, long long most_frames) {
        source_.announce(most_frames);
        for (long long left = most_frames; left > 0;) {
            if (begun_ - written_ == kBlocks) {
                write_oldest();
            }
            Block& block = ring_[static_cast<std::size_t>(begun_ % kBlocks)];
            block.first_frame = source_.position();
            block.frames = source_.read_bytes(block.in.data(), std::min(left, block_frames_));
            if (block.frames == 0) {
                break;
            }
            check_cancelled();
            left -= block.frames;
            lanes_[static_cast<std::size_t>(begun_++ % kLanes)].add();
            pacer.advance(block.frames);
        }
        while (written_ < begun_) {
            write_oldest();
        }
        writer_.finish();
    }

  private:
    struct Block {
        long long first_frame = 0;
        long long frames = 0;
        std::vector<unsigned char> in;
        std::vector<unsigned char> out;
    };

    void write_oldest() {
        lanes_[static_cast<std::size_t>(written_ % kLanes)].finish(written_ / kLanes + 1);
        const Block& oldest = ring_[static_cast<std::size_t>(written_++ % kBlocks)];
        writer_.take_bytes(oldest.out.data(),
                           static_cast<long long>(oldest.out.size()) / writer_.frame_bytes());
    }

    /** A lane's work: its next block, every second of all. */
    void make_next(std::size_t lane) {
        Block& block = ring_[static_cast<std::size_t>(
            (next_[lane]++ * kLanes + static_cast<long long>(lane)) % kBlocks)];
        std::vector<double>& samples = samples_[lane];
        source_.decode(block.in.data(), samples.data(), block.frames);
        FiniteGuard(source_.name(), source_.info(), block.first_frame)
            .check(samples.data(), block.frames * source_.info().channels);
        block.out.clear();
        Encoder end(writer_, block.out);
        part_(end, block.first_frame, samples.data(), block.frames);
    }

    SoundSource& source_;
    SoundWriter& writer_;
    const Part& part_;
    const long long block_frames_;
    std::array<Block, kBlocks> ring_;
    std::array<std::vector<double>, kLanes> samples_;  // of the block that a lane is at
    std::array<long long, kLanes> next_{};
    long long begun_ = 0;    // blocks
    long long written_ = 0;  // handed to the writer
    std::array<HelperThread::Lane, kLanes> lanes_{
        HelperThread::Lane([this] { make_next(0); }, 2),
        HelperThread::Lane([this] { make_next(1); }, 2)};  // the last member: it waits for both
};

/** The parts one after the other, as a link before the writer. */
class InTurn : public Receiver {
  public:
    InTurn(long long first_frame, Receiver& end, const Part& part)
        : frame_(first_frame), end_(end), part_(part) {}

    void process(double* samples, long long frames) override {
        part_(end_, frame_, samples, frames);
        frame_ += frames;
    }

    void finish() override { end_.finish(); }

  private:
    long long frame_;
    Receiver& end_;
    const Part& part_;
};

}  // namespace

void pump_parts(SoundSource& source,
                SoundWriter& writer,
                const Part& part,
                ProgressPacer&& pacer,
                long long most_frames,
                const LoopStyle& style) {
    const long long block_frames = block_frames_for(source.info().channels, pacer.unit_frames());
    const long long expected = std::min(most_frames, source.info().frames - source.position());
    if (HelperThread::is_used() && source.gives_bytes() && writer.takes_bytes() &&
        expected > kBlocks * block_frames) {
        std::unique_ptr<TwoAtATime> two;
        try {
            two = std::make_unique<TwoAtATime>(source, writer, part, block_frames);
        } catch (const std::bad_alloc&) {  // NOLINT(bugprone-empty-catch): one at a time needs less
        }
        if (two) {
            two->go(pacer, most_frames);
            pacer.finish();
            return;
        }
    }
    InTurn in_turn(source.position(), writer, part);
    pump(source, in_turn, pacer, most_frames, style);
}

}  // namespace stream
