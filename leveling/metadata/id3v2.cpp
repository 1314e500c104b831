#include "leveling/metadata/id3v2.h"

#include <algorithm>
#include <boost/crc.hpp>
#include <cstring>
#include <set>
#include <string>

#include "leveling/metadata/player_gains.h"

/*
 * ID3v2 (id3.org, versions 2.2, 2.3 and 2.4): a header of ten bytes, an extended header, frames
 * with name, size and flags, padding, in 2.4 a footer. Three things make it awkward. Sizes have
 * seven bits a byte in places, so that no player mistakes them for audio. "Unsynchronisation" puts
 * zeros into the content for the same reason, and has to be undone before anything is read. And
 * writers exist that state sizes in the other version's way.
 *
 * Only frames with gains go, which were true of the old loudness. Everything else keeps its bytes
 * and its order, and the tag keeps its length: what is removed becomes padding.
 */

namespace quorvane {
namespace {

// Flags of the header.
constexpr unsigned char kUnsynchronised = 0x80;
constexpr unsigned char kExtendedHeader = 0x40;  // version 2.2: compression, never defined
constexpr unsigned char kFooter = 0x10;

/** Sizes whose bytes have 7 bits each ("synchsafe"). */
std::uint64_t get_synchsafe(const Bytes& bytes, std::size_t at, std::size_t count = 4) {
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < count; ++i) {
        value = value << 7 | (bytes[at + i] & 0x7Fu);
    }
    return value;
}

void put_synchsafe(Bytes& bytes, std::size_t at, std::uint64_t value, std::size_t count = 4) {
    for (std::size_t i = count; i-- > 0; value >>= 7) {
        bytes[at + i] = static_cast<unsigned char>(value & 0x7F);
    }
}

/** Undoes the unsynchronisation: a zero after each 0xFF goes. */
Bytes synchronised(const Bytes& bytes) {
    Bytes result;
    result.reserve(bytes.size());
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        result.push_back(bytes[i]);
        if (bytes[i] == 0xFF && i + 1 < bytes.size() && bytes[i + 1] == 0) {
            ++i;
        }
    }
    return result;
}

/** Sets a zero after each 0xFF that would look like a frame of audio, or that a zero follows. */
Bytes unsynchronised(const Bytes& bytes) {
    Bytes result;
    result.reserve(bytes.size() + bytes.size() / 64);
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        result.push_back(bytes[i]);
        const bool last = i + 1 == bytes.size();
        if (bytes[i] == 0xFF && (last || bytes[i + 1] == 0 || bytes[i + 1] >= 0xE0)) {
            result.push_back(0);
        }
    }
    return result;
}

/** Where a frame lies in the tag's content; all in bytes. */
struct Frame {
    std::string id;
    std::size_t at = 0;  // of its header
    std::size_t header = 0;
    std::size_t size = 0;  // of its content
    unsigned char format_flags = 0;

    std::size_t end() const { return at + header + size; }
};

/** The content of a tag between header and footer, with the unsynchronisation undone. */
class TagBody {
  public:
    explicit TagBody(const Bytes& tag)
        : version_(tag[3]),
          flags_(tag[5]),
          bytes_(
              tag.begin() + kId3HeaderBytes,
              tag.begin() + kId3HeaderBytes + static_cast<std::ptrdiff_t>(get_synchsafe(tag, 6))) {
        if (whole_is_unsynchronised()) {
            bytes_ = synchronised(bytes_);
        }
        if (version_ > 2 && (flags_ & kExtendedHeader) && bytes_.size() >= 10) {
            // Version 2.3 does not count the four bytes of the size itself.
            extended_ = static_cast<std::size_t>(version_ == 3
                                                     ? get_number(bytes_, 0, 4, ByteOrder::Big) + 4
                                                     : get_synchsafe(bytes_, 0));
        }
    }

    /** Removes the frames with gains; false when there are none. */
    bool drop_gains() {
        std::vector<Frame> gains;
        frames_end_ = extended_;
        for (Frame frame; read_frame(frames_end_, frame); frames_end_ = frame.end()) {
            if (is_stale(frame)) {
                gains.push_back(frame);
            }
        }
        std::size_t removed = 0;
        for (auto frame = gains.rbegin(); frame != gains.rend(); ++frame) {
            bytes_.erase(bytes_.begin() + static_cast<std::ptrdiff_t>(frame->at),
                         bytes_.begin() + static_cast<std::ptrdiff_t>(frame->end()));
            removed += frame->end() - frame->at;
        }
        if (removed == 0) {
            return false;
        }
        frames_end_ -= removed;
        if (version_ < 4 || !(flags_ & kFooter)) {
            bytes_.resize(bytes_.size() + removed, 0);
            grow_padding(removed);
        }
        refresh_checksum();
        return true;
    }

    Bytes written() const { return whole_is_unsynchronised() ? unsynchronised(bytes_) : bytes_; }

  private:
    bool whole_is_unsynchronised() const { return version_ < 4 && (flags_ & kUnsynchronised); }

    // A frame's name begins here, or the padding, or the tag ends.
    bool plausible(std::uint64_t at) const {
        if (at >= bytes_.size() || bytes_[static_cast<std::size_t>(at)] == 0) {
            return at <= bytes_.size();
        }
        const std::size_t letters = version_ == 2 ? 3 : 4;
        const auto from = bytes_.begin() + static_cast<std::ptrdiff_t>(at);
        return at + letters <= bytes_.size() &&
               std::all_of(from, from + static_cast<std::ptrdiff_t>(letters), [](unsigned char c) {
                   return (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
               });
    }

    // Sizes are plain in version 2.3 and synchsafe in 2.4, but there are writers that mix them up.
    std::uint64_t frame_size(std::size_t at, std::size_t header) const {
        if (version_ == 2) {
            return get_number(bytes_, at + 3, 3, ByteOrder::Big);
        }
        const std::uint64_t plain = get_number(bytes_, at + 4, 4, ByteOrder::Big);
        const bool may_be_safe = (plain & 0x80808080u) == 0;
        const std::uint64_t safe = may_be_safe ? get_synchsafe(bytes_, at + 4) : plain;
        const std::uint64_t stated = version_ == 3 ? plain : safe;
        const std::uint64_t other = version_ == 3 ? safe : plain;
        return !plausible(at + header + stated) && plausible(at + header + other) ? other : stated;
    }

    bool read_frame(std::size_t at, Frame& frame) const {
        const std::size_t header = version_ == 2 ? 6 : 10;
        if (at + header > bytes_.size() || bytes_[at] == 0 || !plausible(at)) {
            return false;
        }
        const std::uint64_t size = frame_size(at, header);
        if (size > bytes_.size() - at - header) {
            return false;
        }
        const auto name = bytes_.begin() + static_cast<std::ptrdiff_t>(at);
        frame = {std::string(name, name + (version_ == 2 ? 3 : 4)), at, header,
                 static_cast<std::size_t>(size),
                 version_ == 2 ? static_cast<unsigned char>(0) : bytes_[at + 9]};
        return true;
    }

    bool is_stale(const Frame& frame) const {
        // Relative volume in all versions, its experimental forms and ReplayGain's own frame.
        static const std::set<std::string> gains = {"RVA2", "RVAD", "XRVA", "RGAD", "RVA"};
        if (gains.count(frame.id) != 0) {
            return true;
        }
        const bool is_text = frame.id == "TXXX" || frame.id == "TXX";
        const bool is_comment = frame.id == "COMM" || frame.id == "COM";
        constexpr std::size_t kLanguageBytes = 3;
        const std::string name = is_text      ? description(frame, 0)
                                 : is_comment ? description(frame, kLanguageBytes)
                                              : "";
        return is_player_gain(name) || name == "iTunSMPB";
    }

    // Of a user's text frame or a comment, behind bytes that it skips; its letters beyond ASCII
    // left out; empty where it cannot be read.
    std::string description(const Frame& frame, std::size_t skipped) const {
        std::size_t at = frame.at + frame.header;
        if (version_ == 3) {
            if (frame.format_flags & 0xC0) {  // compressed or encrypted
                return "";
            }
            at += frame.format_flags & 0x20 ? 1 : 0;  // group
        } else if (version_ == 4) {
            if (frame.format_flags & 0x0C) {
                return "";
            }
            at += (frame.format_flags & 0x40 ? 1 : 0) + (frame.format_flags & 0x01 ? 4 : 0);
        }
        std::string text;
        if (at >= frame.end()) {
            return text;
        }
        const bool wide = bytes_[at] == 1 || bytes_[at] == 2;
        const std::size_t step = wide ? 2 : 1;
        for (at += 1 + skipped; at + step <= frame.end(); at += step) {
            // One of two bytes is zero for every ASCII letter, in either order.
            const unsigned code = wide ? bytes_[at] | bytes_[at + 1] : bytes_[at];
            if (code == 0) {
                break;
            }
            if (code < 0x80) {
                text += static_cast<char>(code);
            }
        }
        return text;
    }

    // Version 2.3 tells the padding's size in its extended header.
    void grow_padding(std::size_t by) {
        if (version_ == 3 && extended_ >= 10) {
            put_number(bytes_, 6, 4, ByteOrder::Big, get_number(bytes_, 6, 4, ByteOrder::Big) + by);
        }
    }

    // Both versions may hold a CRC-32: 2.3 over the frames, 2.4 over the padding as well.
    void refresh_checksum() {
        const auto crc = [&](std::size_t end) {
            boost::crc_32_type sum;
            sum.process_bytes(bytes_.data() + extended_, end - extended_);
            return sum.checksum();
        };
        if (version_ == 3 && extended_ >= 14 && (bytes_[4] & 0x80)) {
            put_number(bytes_, 10, 4, ByteOrder::Big, crc(frames_end_));
        }
        if (version_ == 4 && extended_ >= 12 && (bytes_[5] & 0x20)) {
            const std::size_t at = bytes_[5] & 0x40 ? 7 : 6;  // after the "update" flag's size
            if (at + 6 <= extended_ && bytes_[at] == 5) {
                put_synchsafe(bytes_, at + 1, crc(bytes_.size()), 5);
            }
        }
    }

    const unsigned version_;
    const unsigned flags_;
    Bytes bytes_;
    std::size_t extended_ = 0;
    std::size_t frames_end_ = 0;
};

/** The mark that tells a tag from three letters that happen to stand there. */
bool has_sizes_below_128(const Bytes& header) {
    return std::all_of(header.begin() + 6, header.begin() + 10,
                       [](unsigned char byte) { return byte < 0x80; });
}

}  // namespace

std::uint64_t id3v2_length(const Bytes& start) {
    if (start.size() < kId3HeaderBytes || memcmp(start.data(), "ID3", 3) != 0 || start[3] == 0xFF ||
        start[4] == 0xFF || !has_sizes_below_128(start)) {
        return 0;
    }
    const bool footer = start[3] >= 4 && (start[5] & kFooter);
    return kId3HeaderBytes + get_synchsafe(start, 6) + (footer ? kId3HeaderBytes : 0);
}

std::uint64_t id3v2_length_by_footer(const Bytes& footer) {
    if (footer.size() < kId3HeaderBytes || memcmp(footer.data(), "3DI", 3) != 0 ||
        !has_sizes_below_128(footer)) {
        return 0;
    }
    return 2 * kId3HeaderBytes + get_synchsafe(footer, 6);
}

Bytes without_player_gains(const Bytes& tag) {
    const std::uint64_t length = id3v2_length(tag);
    if (length == 0 || length > tag.size() || tag[3] < 2 || tag[3] > 4 ||
        (tag[3] == 2 && (tag[5] & kExtendedHeader))) {
        return tag;
    }
    TagBody body(tag);
    if (!body.drop_gains()) {
        return tag;
    }
    Bytes result(tag.begin(), tag.begin() + kId3HeaderBytes);
    const Bytes content = body.written();
    put_synchsafe(result, 6, content.size());
    const Bytes header = result;
    result.insert(result.end(), content.begin(), content.end());
    // The footer is the header again, with its letters turned round.
    if (length > kId3HeaderBytes + get_synchsafe(tag, 6)) {
        const std::size_t footer = result.size();
        result.insert(result.end(), header.begin(), header.end());
        std::copy_n("3DI", 3, result.begin() + static_cast<std::ptrdiff_t>(footer));
    }
    result.insert(result.end(), tag.begin() + static_cast<std::ptrdiff_t>(length), tag.end());
    return result;
}

}  // namespace quorvane
