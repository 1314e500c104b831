#include "leveling/metadata/flac_frames.h"

#include <algorithm>
#include <boost/crc.hpp>

/*
 * Frames are found by their headers: sync code, the number that comes next, and a CRC-8 that fits.
 * All three together occur by chance so seldom that nothing else has to be decoded. The encoder of
 * this run makes blocks of one size, which are counted in frames.
 */

namespace quorvane {
namespace {

constexpr std::size_t kMostHeaderBytes = 16;

/** The frame's number, coded as UTF-8 codes a letter, at `at`; moves behind it. */
bool read_number(const unsigned char* bytes, std::size_t& at, std::uint64_t& number) {
    const unsigned lead = bytes[at++];
    if (lead < 0x80) {
        number = lead;
        return true;
    }
    if (lead < 0xC0 || lead == 0xFF) {
        return false;
    }
    unsigned mask = 0x40;
    int more = 0;
    for (; lead & mask; mask >>= 1) {
        ++more;
    }
    number = lead & (mask - 1);
    for (; more > 0; --more) {
        if ((bytes[at] & 0xC0) != 0x80) {
            return false;
        }
        number = number << 6 | (bytes[at++] & 0x3Fu);
    }
    return true;
}

/** True when kMostHeaderBytes hold the header of the frame with this number. */
bool is_frame(const unsigned char* bytes, std::uint64_t wanted) {
    if (bytes[0] != 0xFF || bytes[1] != 0xF8) {  // sync code, blocks of one size
        return false;
    }
    std::size_t at = 4;
    std::uint64_t number = 0;
    if (!read_number(bytes, at, number) || number != wanted) {
        return false;
    }
    // Some codes mean that the value itself stands behind the number.
    const unsigned block = bytes[2] >> 4;
    const unsigned rate = bytes[2] & 0x0F;
    at += block == 6 ? 1 : block == 7 ? 2 : 0;  // a block size of its own
    at += rate == 12 ? 1 : rate == 13 || rate == 14 ? 2 : 0;
    boost::crc_optimal<8, 0x07, 0, 0, false, false> sum;
    sum.process_bytes(bytes, at);
    return sum.checksum() == bytes[at];
}

}  // namespace

std::vector<FlacFrame> flac_frames(ByteFile& file,
                                   std::uint64_t begin,
                                   std::uint64_t end,
                                   std::uint64_t block_samples) {
    std::vector<FlacFrame> frames;
    for (std::uint64_t at = begin; at < end;) {
        // Blocks overlap by a header, which is filled up with zeros at the end.
        const auto wanted = static_cast<std::size_t>(std::min<std::uint64_t>(kFileBlock, end - at));
        Bytes block = file.read(at, wanted + kMostHeaderBytes);
        block.resize(wanted + kMostHeaderBytes, 0);
        for (std::size_t i = 0; i < wanted; ++i) {
            if (block[i] == 0xFF && is_frame(&block[i], frames.size())) {
                frames.push_back({at + i - begin, frames.size() * block_samples});
            }
        }
        at += wanted;
    }
    return frames;
}

}  // namespace quorvane
