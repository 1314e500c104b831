#include "leveling/metadata/mpeg_frames.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "leveling/metadata/id3v2.h"
#include "leveling/metadata/mpeg_header.h"
#include "leveling/metadata/outer_tags.h"

/*
 * The first frame of most files holds no audio but, after its side information, "Xing", "Info" or
 * "VBRI" and the number of frames that follow; encoders that write LAME's extension of it also
 * state how many samples they put in front of the sound and behind it.
 *
 * A frame's coded samples may begin in the frames before it (the bit reservoir, up to 511 bytes),
 * so the first frames behind a hole can often not be decoded although they are there.
 */

namespace quorvane {
namespace {

constexpr std::size_t kVbriAt = 36;
constexpr std::size_t kMostReservoir = 511;  // bytes

// LAME's extension of the Xing header, behind its fields.
constexpr std::size_t kLameBytes = 36;
constexpr std::size_t kLameTrimAt = 21;

bool has_mark(const Bytes& frame, std::size_t at, const char* mark) {
    return frame.size() >= at + 18 && memcmp(frame.data() + at, mark, 4) == 0;
}

/** Where the mark of a Xing header begins; 0 without one. Few writers mind the check sum. */
std::size_t xing_at(const Bytes& frame, const MpegFrame& header) {
    for (const std::size_t before : {kMpegHeaderBytes, header.side_info_at()}) {
        const std::size_t at = before + header.side_info_bytes();
        if (has_mark(frame, at, "Xing") || has_mark(frame, at, "Info")) {
            return at;
        }
    }
    return 0;
}

/** The count in the stream's first frame, if that holds one instead of audio. */
std::optional<std::uint64_t> told_count(const Bytes& frame, const MpegFrame& header) {
    if (const std::size_t at = xing_at(frame, header)) {
        // Flags say which fields follow; the count is the first of them.
        const bool counted = get_number(frame, at + 4, 4, ByteOrder::Big) & 1;
        return counted ? get_number(frame, at + 8, 4, ByteOrder::Big) : 0;
    }
    if (has_mark(frame, kVbriAt, "VBRI")) {
        return get_number(frame, kVbriAt + 14, 4, ByteOrder::Big);
    }
    return std::nullopt;
}

/** From LAME's extension, as it is written by LAME and by FFmpeg. */
std::optional<MpegTrim> told_trim(const Bytes& frame, const MpegFrame& header) {
    constexpr std::size_t kFieldBytes[] = {4, 4, 100, 4};  // count, bytes, places, quality
    std::size_t at = xing_at(frame, header);
    if (at == 0) {
        return std::nullopt;
    }
    const std::uint64_t flags = get_number(frame, at + 4, 4, ByteOrder::Big);
    at += 8;
    for (std::size_t i = 0; i < std::size(kFieldBytes); ++i) {
        at += flags >> i & 1 ? kFieldBytes[i] : 0;
    }
    const auto is_from = [&](const char* encoder) {
        return memcmp(frame.data() + at, encoder, 4) == 0;
    };
    if (frame.size() < at + kLameBytes ||
        !(is_from("LAME") || is_from("Lavf") || is_from("Lavc"))) {
        return std::nullopt;
    }
    const auto both = static_cast<int>(get_number(frame, at + kLameTrimAt, 3, ByteOrder::Big));
    return MpegTrim{both >> 12, both & 0xFFF};
}

/** Goes through the frames of a file, over holes and tags between them. */
class FrameWalk {
  public:
    explicit FrameWalk(const std::string& path)
        : file_(path, "rb"), audio_(audio_between_tags(file_)) {}

    std::optional<MpegStream> run() {
        std::optional<std::uint64_t> at = find(audio_.begin);
        if (!at) {
            return std::nullopt;
        }
        first_ = frame_at(*at);
        stream_.samples_per_frame = first_.samples();
        const Bytes first = file_.read(*at, first_.bytes);
        stream_.told = told_count(first, first_);
        stream_.trim = told_trim(first, first_);
        if (stream_.told) {
            at = *at + first_.bytes;
            at = is_followed(*at) ? at : find(*at);
        }
        while (at && *at + kMpegHeaderBytes <= audio_.end) {
            at = step(*at);
        }
        settle();
        return stream_;
    }

  private:
    /** The header at a place; one of no bytes where there is none of this stream. */
    MpegFrame frame_at(std::uint64_t at) {
        if (at + kMpegHeaderBytes > audio_.end) {
            return {};
        }
        if (at < block_at_ || at + kMpegHeaderBytes > block_at_ + block_.size()) {
            block_ = file_.read(at, kFileBlock);
            block_at_ = at;
            if (block_.size() < kMpegHeaderBytes) {
                return {};
            }
        }
        const MpegFrame frame = read_mpeg_frame(&block_[static_cast<std::size_t>(at - block_at_)]);
        return first_.bytes == 0 || frame.same_stream(first_) ? frame : MpegFrame{};
    }

    /** Whether a frame, or the end, stands behind one that ends here. */
    bool is_followed(std::uint64_t end) {
        return end <= audio_.end &&
               (end + kMpegHeaderBytes > audio_.end || frame_at(end).bytes != 0);
    }

    /** The next place with a frame that another one, or the end, follows. */
    std::optional<std::uint64_t> find(std::uint64_t from) {
        for (std::uint64_t at = from; at + kMpegHeaderBytes <= audio_.end; ++at) {
            const MpegFrame frame = frame_at(at);
            if (frame.bytes == 0 || at + frame.bytes > audio_.end) {
                continue;
            }
            const MpegFrame next = frame_at(at + frame.bytes);
            if (at + frame.bytes + kMpegHeaderBytes > audio_.end ||
                (next.bytes != 0 && next.same_stream(frame))) {
                return at;
            }
        }
        return std::nullopt;
    }

    /** The place behind ID3 tags between two joined recordings; the same place without any. */
    std::uint64_t behind_tags(std::uint64_t at) {
        constexpr std::size_t kId3v1Bytes = 128;
        const Bytes start = file_.read(at, kId3HeaderBytes);
        if (start.size() >= 3 && memcmp(start.data(), "TAG", 3) == 0) {
            at += kId3v1Bytes;
        }
        return at + id3v2_length(file_.read(at, kId3HeaderBytes));
    }

    /** Takes the frame at a place, or leaves it; returns where to go on. */
    std::optional<std::uint64_t> step(std::uint64_t at) {
        const MpegFrame frame = frame_at(at);
        const std::uint64_t end = at + frame.bytes;
        if (is_followed(end)) {
            take(at, frame);
            return end;
        }
        if (end < audio_.end) {
            const std::uint64_t behind = behind_tags(end);
            if (behind != end && is_followed(behind)) {
                take(at, frame);
                return behind;
            }
        }
        // Bytes may be missing in this frame, so that the next one begins in it.
        const std::optional<std::uint64_t> next = find(at + kMpegHeaderBytes);
        if (next) {
            lose(*next - at, frame);
        } else if (end > audio_.end) {
            stream_.missing = 1;
        } else {
            take(at, frame);
            ends_whole_ = false;
        }
        return next;
    }

    void take(std::uint64_t at, const MpegFrame& frame) {
        const bool cut_off = is_behind_hole_ && needs_before(at, frame) > reservoir_;
        reservoir_ += frame.main_data_bytes();
        is_behind_hole_ = is_behind_hole_ && (cut_off || reservoir_ < kMostReservoir);
        std::vector<MpegRun>& runs = stream_.runs;
        if (runs.empty() || lost_ > 0 || runs.back().end != at || runs.back().cut_off != cut_off) {
            runs.push_back({lost_, at, at, 0, cut_off});
            lost_ = 0;
        }
        runs.back().end = at + frame.bytes;
        ++runs.back().frames;
        ++stream_.frames;
        bytes_ += frame.bytes;
    }

    /** How far back the frame's coded samples begin (main_data_begin), in bytes. */
    std::size_t needs_before(std::uint64_t at, const MpegFrame& frame) {
        const Bytes field = file_.read(at + frame.side_info_at(), 2);
        if (field.size() < 2) {
            return 0;
        }
        return frame.version_1 ? static_cast<std::size_t>(field[0] << 1 | field[1] >> 7) : field[0];
    }

    /** A frame and what follows it are damaged, so many bytes long. */
    void lose(std::uint64_t bytes, const MpegFrame& frame) {
        const double each = stream_.frames > 0
                                ? static_cast<double>(bytes_) / static_cast<double>(stream_.frames)
                                : static_cast<double>(frame.bytes);
        lost_ += std::max<std::uint64_t>(
            1, static_cast<std::uint64_t>(std::lround(static_cast<double>(bytes) / each)));
        is_behind_hole_ = true;
        reservoir_ = 0;
    }

    /** Corrects the estimates by the stream's own count. */
    void settle() {
        stream_.missing += lost_;
        if (!stream_.told || *stream_.told < stream_.frames) {
            return;
        }
        const std::uint64_t known = stream_.frames_with_holes();
        const auto widest =
            std::max_element(stream_.runs.begin(), stream_.runs.end(),
                             [](const MpegRun& a, const MpegRun& b) { return a.lost < b.lost; });
        if (widest == stream_.runs.end() || *stream_.told > known) {
            // Some encoders count the frame that holds the count.
            const std::uint64_t more = *stream_.told - known;
            const bool in_hole = stream_.has_holes() && ends_whole_ && stream_.missing == 0;
            if (in_hole) {
                widest->lost += more;
            } else {
                stream_.missing = more > 1 || stream_.missing > 0 ? more : 0;
            }
            return;
        }
        stream_.missing = 0;
        for (std::uint64_t over = known - *stream_.told; over > 0;) {
            const auto most = std::max_element(
                stream_.runs.begin(), stream_.runs.end(),
                [](const MpegRun& a, const MpegRun& b) { return a.lost < b.lost; });
            const std::uint64_t less = std::min(over, most->lost);
            if (less == 0) {
                return;
            }
            most->lost -= less;
            over -= less;
        }
    }

    ByteFile file_;
    AudioRange audio_;
    Bytes block_;
    std::uint64_t block_at_ = 0;
    MpegFrame first_;
    MpegStream stream_;
    std::uint64_t lost_ = 0;   // frames, in front of the next one
    std::uint64_t bytes_ = 0;  // of the frames taken
    bool is_behind_hole_ = false;
    std::size_t reservoir_ = 0;  // bytes behind the hole that later frames may need
    bool ends_whole_ = true;
};

}  // namespace

std::uint64_t MpegStream::frames_with_holes() const {
    std::uint64_t count = 0;
    for (const MpegRun& run : runs) {
        count += run.lost + run.frames;
    }
    return count;
}

bool MpegStream::has_holes() const {
    return std::any_of(runs.begin(), runs.end(),
                       [](const MpegRun& run) { return run.lost > 0 || run.cut_off; });
}

std::optional<MpegStream> count_mpeg_frames(const std::string& path) {
    return FrameWalk(path).run();
}

}  // namespace quorvane
