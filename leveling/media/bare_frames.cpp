#include "leveling/media/bare_frames.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <system_error>

extern "C" {
#include <libavcodec/ac3_parser.h>
}

/*
 * A header counts where another one, or the end, stands behind its frame: a mark alone occurs by
 * chance. An ADTS header (ISO/IEC 13818-7) has 12 bits of sync, the version, the layer (0), "no
 * check sum", profile, sample rate, channels and, in 13 bits, the length of its frame.
 */

namespace quorvane::media {
namespace {

constexpr std::size_t kHeaderBytes = 8;  // what both kinds of headers need
// Read at a time.
constexpr std::size_t kBlockBytes = 1 << 20;
// A frame's header without a check sum is 7 bytes long, so a frame has one more at least.
constexpr std::size_t kLeastAdtsBytes = 8;

/** The length of an ADTS frame (ISO/IEC 13818-7, 6.2) by its header; 0 where there is none. */
std::size_t adts_bytes(const std::uint8_t* at) {
    constexpr unsigned kMostRate = 12;  // index
    if (at[0] != 0xFF || (at[1] & 0xF6) != 0xF0 || (at[2] >> 2 & 15U) > kMostRate) {
        return 0;
    }
    const std::size_t bytes = static_cast<std::size_t>((at[3] & 3) << 11 | at[4] << 3 | at[5] >> 5);
    return bytes >= kLeastAdtsBytes ? bytes : 0;
}

/** The length of an AC-3 or E-AC-3 frame by its header; 0 where there is none. */
std::size_t ac3_bytes(const std::uint8_t* at) {
    std::uint8_t version = 0;
    std::uint16_t bytes = 0;
    const bool is_frame = at[0] == 0x0B && at[1] == 0x77 &&
                          av_ac3_parse_header(at, kHeaderBytes, &version, &bytes) >= 0;
    return is_frame ? bytes : 0;
}

}  // namespace

BareFrames::BareFrames(const std::string& path, const std::string& demuxer)
    : file_(path, std::ios::binary), is_adts_(demuxer == "aac") {
    file_.seekg(0, std::ios::end);
    if (!file_) {
        throw std::system_error(errno, std::generic_category(), "cannot be read");
    }
    end_ = static_cast<std::uint64_t>(file_.tellg());
    at_ = find(0);
    if (at_) {
        const std::uint8_t* header = bytes_at(*at_, kHeaderBytes);
        first_.assign(header, header + kHeaderBytes);
    }
}

bool BareFrames::are_in(const std::string& demuxer) {
    return demuxer == "aac" || demuxer == "ac3" || demuxer == "eac3";
}

// Null behind the end. The pointer is valid until the next call.
const std::uint8_t* BareFrames::bytes_at(std::uint64_t at, std::size_t count) {
    if (at + count > end_) {
        return nullptr;
    }
    if (at < block_at_ || at + count > block_at_ + block_.size()) {
        block_.resize(static_cast<std::size_t>(
            std::min<std::uint64_t>(std::max(kBlockBytes, count), end_ - at)));
        file_.clear();
        file_.seekg(static_cast<std::streamoff>(at));
        file_.read(reinterpret_cast<char*>(block_.data()),
                   static_cast<std::streamsize>(block_.size()));
        if (!file_) {
            throw std::system_error(EIO, std::generic_category(), "cannot be read");
        }
        block_at_ = at;
    }
    return block_.data() + (at - block_at_);
}

/** Of one stream: the fields that stay the same in all its headers. */
bool BareFrames::same_stream(const std::uint8_t* header) const {
    if (first_.empty()) {
        return true;
    }
    return is_adts_ ? (header[2] & 0xFC) == (first_[2] & 0xFC)
                    : (header[4] & 0xC0) == (first_[4] & 0xC0);
}

// 0 where no frame of this stream begins: one of another rate or channel count is not one.
std::size_t BareFrames::frame_bytes(std::uint64_t at) {
    const std::uint8_t* header = bytes_at(at, kHeaderBytes);
    if (!header || !same_stream(header)) {
        return 0;
    }
    return is_adts_ ? adts_bytes(header) : ac3_bytes(header);
}

// Audio holds bytes that look like a header; a frame that ends where the next one begins, or at the
// file's end, is taken for one.
bool BareFrames::is_followed(std::uint64_t end) {
    return end <= end_ && (end + kHeaderBytes > end_ || frame_bytes(end) != 0);
}

// The search behind damage: byte by byte, until a frame is there again.
std::optional<std::uint64_t> BareFrames::find(std::uint64_t from) {
    for (std::uint64_t at = from; at + kHeaderBytes <= end_; ++at) {
        const std::size_t bytes = frame_bytes(at);
        if (bytes != 0 && is_followed(at + bytes)) {
            return at;
        }
    }
    return std::nullopt;
}

// An estimate, by the mean length of the frames so far: 1 at least.
std::int64_t BareFrames::frames_in(std::uint64_t bytes, std::size_t frame) const {
    const double each = good_ > 0 ? static_cast<double>(good_bytes_) / static_cast<double>(good_)
                                  : static_cast<double>(frame);
    return std::max<std::int64_t>(1, std::llround(static_cast<double>(bytes) / each));
}

std::optional<BareFrames::Frame> BareFrames::next() {
    while (at_) {
        const std::uint64_t at = *at_;
        const std::size_t bytes = frame_bytes(at);
        if (bytes == 0) {
            return std::nullopt;  // the end, or less than a header before it
        }
        const bool is_whole = at + bytes <= end_;
        if (is_whole && is_followed(at + bytes)) {
            at_ = at + bytes;
        } else {
            // The next frame may begin inside this one, where bytes are missing.
            at_ = find(at + 1);
            if (at_) {
                lost_ += frames_in(*at_ - at, bytes);
                continue;
            }
            missing_ += is_whole ? 0 : 1;
            if (!is_whole) {
                return std::nullopt;
            }
        }
        good_bytes_ += bytes;
        ++good_;
        const Frame frame{bytes_at(at, bytes), bytes, lost_};
        lost_ = 0;
        return frame;
    }
    return std::nullopt;
}

// Reads headers only: frames are skipped by their lengths.
bool has_holes(const std::string& path, const std::string& demuxer) {
    BareFrames frames(path, demuxer);
    while (const auto frame = frames.next()) {
        if (frame->lost > 0) {
            return true;
        }
    }
    return frames.missing() > 0;
}

}  // namespace quorvane::media
