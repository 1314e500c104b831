#include "leveling/metadata/adpcm_blocks.h"

#include <algorithm>
#include <cmath>

#include "leveling/metadata/chunk_list.h"
#include "leveling/metadata/outer_tags.h"

/*
 * A block begins with a header for each channel. IMA: the first sample (16 bits), the index of the
 * step (0 to 88), a zero byte; then 4 bytes of each channel in turn, the low half of a byte first.
 * Microsoft: the predictor (0 to 6) of each channel, then the steps (16 bits, 16 or more), then two
 * samples each. (Microsoft, "New Multimedia Data Types and Data Techniques", 1994.)
 */

namespace quorvane {
namespace {

constexpr std::uint64_t kMicrosoft = 2;  // codings in a format chunk
constexpr std::uint64_t kIma = 0x11;

constexpr int kMostIndex = 88;
constexpr int kMostPredictor = 6;
constexpr std::uint64_t kLeastStep = 16;
constexpr std::uint64_t kMostStep = 0x7FFF;
constexpr std::size_t kImaHeaderBytes = 4;  // a channel
constexpr std::size_t kMicrosoftHeaderBytes = 7;

// A code of zero raises an IMA sample by an eighth of the step and lowers the index by one: from a
// high index, a row of them is a ramp that then stays, which no encoder makes of sound.
constexpr std::size_t kZerosInRow = 16;  // bytes
constexpr int kHighIndex = 12;

constexpr int kHeadersInRow = 4;                 // that show where the blocks go on
constexpr std::uint64_t kMostSkipped = 1 << 20;  // bytes searched behind a damaged header

/** Where `kZerosInRow` zeros begin, from an offset on; the size where they do not. */
std::size_t first_zeros(const Bytes& block, std::size_t from) {
    const auto begin = block.begin() + static_cast<std::ptrdiff_t>(std::min(from, block.size()));
    const auto at = std::search_n(begin, block.end(), static_cast<int>(kZerosInRow), 0);
    return static_cast<std::size_t>(at - block.begin());
}

bool ends_in_zeros(const Bytes& block) {
    return block.size() >= kZerosInRow &&
           std::all_of(block.end() - static_cast<std::ptrdiff_t>(kZerosInRow), block.end(),
                       [](unsigned char byte) { return byte == 0; });
}

class Checker {
  public:
    Checker(ByteFile& file, AdpcmStream& stream)
        : file_(file), stream_(stream), bytes_(stream.block_bytes), end_(file.size()) {}

    void run() {
        const std::uint64_t size = stream_.data_end - stream_.data_begin;
        blocks_ = size / bytes_;
        std::uint64_t at = stream_.data_begin;
        while (count_ < blocks_ && at + bytes_ <= end_) {
            const Bytes block = file_.read(at, bytes_);
            if (is_header(block, 0)) {
                take(at, block);
                at += bytes_;
            } else {
                at = skip_damage(at, block);
            }
        }
    }

  private:
    bool is_header(const Bytes& bytes, std::size_t at) const {
        const std::size_t channels = stream_.channels;
        for (std::size_t channel = 0; channel < channels; ++channel) {
            if (stream_.is_ima) {
                const std::size_t header = at + channel * kImaHeaderBytes;
                if (bytes[header + 2] > kMostIndex || bytes[header + 3] != 0) {
                    return false;
                }
            } else {
                const std::uint64_t step =
                    get_number(bytes, at + channels + 2 * channel, 2, ByteOrder::Little);
                if (bytes[at + channel] > kMostPredictor || step < kLeastStep || step > kMostStep) {
                    return false;
                }
            }
        }
        return true;
    }

    std::size_t header_bytes() const {
        return stream_.channels * (stream_.is_ima ? kImaHeaderBytes : kMicrosoftHeaderBytes);
    }

    bool has_zero_header(const Bytes& bytes, std::size_t at) const {
        const auto begin = bytes.begin() + static_cast<std::ptrdiff_t>(at);
        return std::all_of(begin, begin + static_cast<std::ptrdiff_t>(header_bytes()),
                           [](unsigned char byte) { return byte == 0; });
    }

    /** The highest index of a channel of an IMA block at an offset in it. */
    int index_at(const Bytes& block, std::size_t end) const {
        static constexpr int kMoves[] = {-1, -1, -1, -1, 2, 4, 6, 8};
        int highest = 0;
        for (std::size_t channel = 0; channel < stream_.channels; ++channel) {
            int index = block[channel * kImaHeaderBytes + 2];
            for (std::size_t at = header_bytes(); at < end; ++at) {
                if (at / 4 % stream_.channels == channel) {
                    index = std::clamp(index + kMoves[block[at] & 7], 0, kMostIndex);
                    index = std::clamp(index + kMoves[block[at] >> 4 & 7], 0, kMostIndex);
                }
            }
            highest = std::max(highest, index);
        }
        return highest;
    }

    bool has_impossible_zeros(const Bytes& block) const {
        if (!stream_.is_ima) {
            return false;
        }
        if (is_in_zeros_ && has_zero_header(block, 0)) {
            return true;
        }
        const std::size_t at = first_zeros(block, header_bytes());
        return at < block.size() && index_at(block, at) >= kHighIndex;
    }

    void take(std::uint64_t at, const Bytes& block) {
        const bool is_lost = has_impossible_zeros(block);
        is_in_zeros_ = is_lost && ends_in_zeros(block);
        last_ends_in_zeros_ = ends_in_zeros(block);
        add({at, 1, is_lost});
    }

    void add(const AdpcmRun& run) {
        std::vector<AdpcmRun>& runs = stream_.runs;
        count_ += run.count;
        if (!runs.empty() && runs.back().is_lost == run.is_lost &&
            (run.is_lost || runs.back().at + runs.back().count * bytes_ == run.at)) {
            runs.back().count += run.count;
        } else {
            runs.push_back(run);
        }
    }

    /** The last block turns out to be damaged, too. */
    void drop_last() {
        std::vector<AdpcmRun>& runs = stream_.runs;
        if (runs.empty() || runs.back().is_lost) {
            return;
        }
        --count_;
        if (--runs.back().count == 0) {
            runs.pop_back();
        }
        add({0, 1, true});
    }

    /**
     * Counts what is lost between the last good header and the next one, and returns the offset of
     * that.
     */
    std::uint64_t skip_damage(std::uint64_t at, const Bytes& block) {
        const bool is_after_good = !stream_.runs.empty() && !stream_.runs.back().is_lost;
        const std::uint64_t from = is_after_good ? at - bytes_ + 1 : at + 1;
        const std::uint64_t next = find_headers(from, at);
        if (next == end_) {
            add({0, blocks_ - count_, true});
            return end_;
        }
        const bool is_moved = next < at || (next - at) % bytes_ != 0;
        if (is_moved || (has_zero_header(block, 0) && last_ends_in_zeros_)) {
            drop_last();
        }
        const bool holds_change = is_moved && is_after_good;  // the dropped block
        add({0, std::min(lost_before(next, at, holds_change), blocks_ - count_), true});
        is_in_zeros_ = last_ends_in_zeros_ = false;
        return next;
    }

    /**
     * Blocks that are lost between two offsets. Of moved ones the distance does not tell, but the
     * number of those that follow does, unless the file is cut off, too.
     */
    std::uint64_t lost_before(std::uint64_t next, std::uint64_t at, bool holds_change) const {
        constexpr double kNear = 8;
        const double distance =
            (static_cast<double>(next) - static_cast<double>(at)) / static_cast<double>(bytes_);
        const double by_distance = std::max(holds_change ? 0.0 : 1.0, std::round(distance));
        const std::uint64_t follow = (end_ - next) / bytes_;  // whole blocks
        const double by_count = static_cast<double>(blocks_ - count_) - static_cast<double>(follow);
        const bool counts =
            holds_change && by_count >= 0 && std::abs(by_count - by_distance) <= kNear;
        return static_cast<std::uint64_t>(counts ? by_count : by_distance);
    }

    /** Where several headers follow one another at the distance of blocks, the end if nowhere. */
    std::uint64_t find_headers(std::uint64_t from, std::uint64_t damaged) {
        const std::size_t needed = (kHeadersInRow - 1) * bytes_ + header_bytes();
        const Bytes window = file_.read(from, static_cast<std::size_t>(kMostSkipped) + needed);
        for (std::size_t i = 0; i + header_bytes() <= window.size() && i < kMostSkipped; ++i) {
            const bool is_aligned = (from + i - damaged) % bytes_ == 0;
            // Near the end fewer blocks are left: only where they are expected.
            if ((is_aligned && from + i > damaged && from + i + needed > stream_.data_end &&
                 is_header(window, i)) ||
                is_row(window, i)) {
                return from + i;
            }
        }
        return end_;
    }

    bool is_row(const Bytes& window, std::size_t at) const {
        for (int i = 0; i < kHeadersInRow; ++i, at += bytes_) {
            // Zeros are headers of IMA, wherever one looks in them.
            if (at + header_bytes() > window.size() || !is_header(window, at) ||
                has_zero_header(window, at)) {
                return false;
            }
        }
        return true;
    }

    ByteFile& file_;
    AdpcmStream& stream_;
    const std::size_t bytes_;  // of a block
    const std::uint64_t end_;
    std::uint64_t blocks_ = 0;  // that the file promises
    std::uint64_t count_ = 0;   // of blocks in the runs
    bool is_in_zeros_ = false;  // the last block is lost and ends in zeros
    bool last_ends_in_zeros_ = false;
};

/** What the chunks say of the samples; nothing for other codings. */
std::optional<AdpcmStream> describe(ByteFile& file) {
    constexpr std::size_t kFormatBytes = 20;  // up to the samples in a block
    const Layout layout = layout_of(file);
    if (layout.kind == Container::None || layout.byte_order != ByteOrder::Little) {
        return std::nullopt;
    }
    AdpcmStream stream;
    for (const Chunk& chunk : chunks_of(file, layout)) {
        if (chunk.name() == "fmt " && chunk.size >= kFormatBytes) {
            const Bytes format = file.read(chunk.offset, kFormatBytes);
            const std::uint64_t coding = get_number(format, 0, 2, ByteOrder::Little);
            if (coding != kIma && coding != kMicrosoft) {
                return std::nullopt;
            }
            stream.is_ima = coding == kIma;
            stream.channels = get_number(format, 2, 2, ByteOrder::Little);
            stream.block_bytes = get_number(format, 12, 2, ByteOrder::Little);
            stream.samples_per_block =
                static_cast<std::int64_t>(get_number(format, 18, 2, ByteOrder::Little));
        } else if (is_audio(chunk)) {
            stream.data_begin = chunk.offset;
            stream.data_end = chunk.offset + chunk.stated;
        }
    }
    const std::size_t header = kMicrosoftHeaderBytes * stream.channels;
    const bool is_known = stream.channels >= 1 && stream.channels <= 2 &&
                          stream.samples_per_block > 0 && stream.block_bytes > 2 * header &&
                          stream.data_begin > 0;
    return is_known ? std::optional(stream) : std::nullopt;
}

/** Decodes to zeros alone. */
Bytes silent_block(const AdpcmStream& stream) {
    Bytes block(stream.block_bytes, 0);
    for (std::size_t channel = 0; channel < stream.channels && !stream.is_ima; ++channel) {
        put_number(block, stream.channels + 2 * channel, 2, ByteOrder::Little, kLeastStep);
    }
    return block;
}

}  // namespace

bool AdpcmStream::is_damaged() const {
    return std::any_of(runs.begin(), runs.end(), [](const AdpcmRun& run) { return run.is_lost; });
}

bool AdpcmStream::is_complete() const {
    std::uint64_t count = 0;
    for (const AdpcmRun& run : runs) {
        count += run.count;
    }
    return count == (data_end - data_begin) / block_bytes;
}

Loss AdpcmStream::loss() const {
    Loss loss;
    std::int64_t at = 0;
    for (const AdpcmRun& run : runs) {
        const std::int64_t frames = static_cast<std::int64_t>(run.count) * samples_per_block;
        if (run.is_lost) {
            loss.add(at, frames);
        }
        at += frames;
    }
    return loss;
}

std::optional<AdpcmStream> check_adpcm_blocks(const std::string& path) {
    ByteFile file(path, "rb");
    std::optional<AdpcmStream> stream = describe(file);
    if (stream) {
        Checker(file, *stream).run();
    }
    return stream;
}

void write_repaired_adpcm(const std::string& from,
                          const AdpcmStream& stream,
                          const std::string& to) {
    ByteFile file(from, "rb");
    ByteFile out(to, "wb");
    const Bytes silence = silent_block(stream);
    copy_bytes(file, 0, stream.data_begin, out);
    std::uint64_t blocks = 0;
    for (const AdpcmRun& run : stream.runs) {
        for (std::uint64_t i = 0; run.is_lost && i < run.count; ++i) {
            out.write(silence);
        }
        if (!run.is_lost) {
            copy_bytes(file, run.at, run.at + run.count * stream.block_bytes, out);
        }
        blocks += run.count;
    }
    // A last block that is not whole, and the chunks behind.
    const std::uint64_t rest = stream.data_begin + blocks * stream.block_bytes;
    if (rest < file.size()) {
        copy_bytes(file, rest, file.size(), out);
    }
    out.close();
}

}  // namespace quorvane
