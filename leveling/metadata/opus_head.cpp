#include "leveling/metadata/opus_head.h"

#include <algorithm>
#include <cstdint>
#include <stdexcept>

#include "leveling/metadata/byte_file.h"
#include "leveling/metadata/ogg_pages.h"

namespace quorvane {
namespace {

// The first page of an Ogg Opus file (RFC 7845) has a header of 28 bytes, then the identification:
// "OpusHead", version (1), channels (1), pre-skip (2), rate of the original sound (4).
constexpr std::size_t kHeadAt = 28;
constexpr std::size_t kRateAt = kHeadAt + 12;
constexpr std::size_t kRateBytes = 4;
constexpr std::uint64_t kFullRateHz = 48000;

}  // namespace

void write_opus_at_full_rate(const std::string& from, const std::string& to) {
    const std::string mark = "OpusHead";
    copy_from(from, 0, to);
    ByteFile file(to, "r+b");
    Bytes start = file.read(0, kRateAt + kRateBytes);
    if (start.size() < kRateAt + kRateBytes ||
        !std::equal(mark.begin(), mark.end(), start.begin() + kHeadAt)) {
        throw std::runtime_error("an Ogg Opus file has no header");
    }
    put_number(start, kRateAt, kRateBytes, ByteOrder::Little, kFullRateHz);
    file.read(0, 0);  // moves there
    file.write(start);
    file.close();
    set_ogg_serial(to, ogg_serial(to));  // the check sums
}

}  // namespace quorvane
