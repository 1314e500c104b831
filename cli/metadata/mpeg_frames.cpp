#include "cli/metadata/mpeg_frames.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>

#include "cli/metadata/outer_tags.h"

/*
 * A frame of MPEG audio begins with 32 bits: 11 of sync, version, layer, "no check sum", index of
 * the bit rate, index of the sample rate, padding, channel mode. Its length follows from them
 * (ISO/IEC 11172-3 and 13818-3). The first frame of most files holds no audio but, after its side
 * information, "Xing", "Info" or "VBRI" and the number of frames that follow.
 */

namespace cli {
namespace {

constexpr std::size_t kFrameHeaderBytes = 4;
constexpr std::size_t kVbriAt = 36;

/** One frame's header, read. */
struct MpegFrame {
    bool version_1 = false;
    bool mono = false;
    unsigned rate_index = 0;
    unsigned version_bits = 0;
    std::size_t bytes = 0;  // 0: no frame of layer III with a bit rate

    int samples() const { return version_1 ? 1152 : 576; }

    std::size_t side_info_bytes() const { return version_1 ? (mono ? 17 : 32) : (mono ? 9 : 17); }

    bool same_stream(const MpegFrame& other) const {
        return version_bits == other.version_bits && rate_index == other.rate_index;
    }
};

/** at: four bytes. Layers I and II, and frames of a free bit rate, are none. */
MpegFrame read_frame(const unsigned char* at) {
    static constexpr int kRates[] = {44100, 48000, 32000};
    static constexpr int kVersion1[] = {32,  40,  48,  56,  64,  80,  96,
                                        112, 128, 160, 192, 224, 256, 320};
    static constexpr int kVersion2[] = {8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160};
    MpegFrame frame;
    const unsigned version = at[1] >> 3 & 3;  // 0: 2.5, 2: 2, 3: 1
    const unsigned layer = at[1] >> 1 & 3;    // 1: layer III
    const unsigned bit_rate = at[2] >> 4;
    frame.rate_index = at[2] >> 2 & 3;
    if (at[0] != 0xFF || (at[1] & 0xE0) != 0xE0 || version == 1 || layer != 1 || bit_rate == 0 ||
        bit_rate == 15 || frame.rate_index == 3) {
        return frame;
    }
    frame.version_bits = version;
    frame.version_1 = version == 3;
    frame.mono = at[3] >> 6 == 3;
    const int rate = kRates[frame.rate_index] / (version == 3 ? 1 : version == 2 ? 2 : 4);
    const int kbps = (frame.version_1 ? kVersion1 : kVersion2)[bit_rate - 1];
    frame.bytes =
        static_cast<std::size_t>(frame.samples() / 8 * kbps * 1000 / rate) + (at[2] >> 1 & 1);
    return frame;
}

/** The count in the stream's first frame, if that holds one instead of audio. */
std::optional<std::uint64_t> told_count(const Bytes& frame, const MpegFrame& header) {
    const auto has = [&](std::size_t at, const char* mark) {
        return frame.size() >= at + 18 && memcmp(frame.data() + at, mark, 4) == 0;
    };
    const std::size_t at = kFrameHeaderBytes + header.side_info_bytes();
    if (has(at, "Xing") || has(at, "Info")) {
        // Flags say which fields follow; the count is the first of them.
        const bool counted = get_number(frame, at + 4, 4, ByteOrder::Big) & 1;
        return counted ? get_number(frame, at + 8, 4, ByteOrder::Big) : 0;
    }
    if (has(kVbriAt, "VBRI")) {
        return get_number(frame, kVbriAt + 14, 4, ByteOrder::Big);
    }
    return std::nullopt;
}

/** Calls `take(offset, header)` for every frame that is wholly there. */
template <class Take>
void for_each_frame(ByteFile& file, const AudioRange& audio, const Take& take) {
    Bytes block;
    std::uint64_t block_at = 0;
    MpegFrame first;
    for (std::uint64_t at = audio.begin; at + kFrameHeaderBytes <= audio.end;) {
        if (block.empty() || at + kFrameHeaderBytes > block_at + block.size()) {
            block = file.read(at, kFileBlock);
            block_at = at;
            if (block.size() < kFrameHeaderBytes) {
                return;
            }
        }
        const MpegFrame frame = read_frame(&block[static_cast<std::size_t>(at - block_at)]);
        if (frame.bytes == 0 || (first.bytes != 0 && !frame.same_stream(first))) {
            ++at;  // lost: the next header may stand anywhere
            continue;
        }
        if (at + frame.bytes > audio.end) {
            return;
        }
        first = first.bytes == 0 ? frame : first;
        take(at, frame);
        at += frame.bytes;
    }
}

}  // namespace

std::optional<MpegStream> count_mpeg_frames(const std::string& path) {
    ByteFile file(path, "rb");
    MpegStream stream;
    for_each_frame(file, audio_between_tags(file), [&](std::uint64_t at, const MpegFrame& frame) {
        if (stream.samples_per_frame == 0) {
            stream.samples_per_frame = frame.samples();
            stream.told = told_count(file.read(at, frame.bytes), frame);
            stream.frames = stream.told ? 0 : 1;
        } else {
            ++stream.frames;
        }
    });
    return stream.samples_per_frame == 0 ? std::nullopt : std::make_optional(stream);
}

void write_with_frame_count(const std::string& from,
                            const MpegStream& stream,
                            const std::string& to) {
    ByteFile file(from, "rb");
    const AudioRange audio = audio_between_tags(file);
    std::uint64_t begin = audio.end;
    Bytes header;
    for_each_frame(file, audio, [&](std::uint64_t at, const MpegFrame& frame) {
        if (header.empty()) {
            header = file.read(at, kFrameHeaderBytes);
            begin = stream.told ? at + frame.bytes : at;
        }
    });
    if (header.empty()) {
        throw std::runtime_error("holds no frame of MPEG audio");
    }
    // The lowest bit rate at which the frame holds the count.
    header[1] |= 1;  // no check sum
    header[2] &= 0x0D;
    MpegFrame frame;
    for (unsigned bit_rate = 1; bit_rate < 15 && frame.bytes < 128; ++bit_rate) {
        header[2] = static_cast<unsigned char>((header[2] & 0x0F) | bit_rate << 4);
        frame = read_frame(header.data());
    }
    const std::size_t mark = kFrameHeaderBytes + frame.side_info_bytes();
    Bytes info = header;
    info.resize(frame.bytes, 0);
    std::copy_n("Info", 4, info.begin() + static_cast<std::ptrdiff_t>(mark));
    // Of the fields only the count: players take the rest from the frames.
    put_number(info, mark + 4, 4, ByteOrder::Big, 1);
    put_number(info, mark + 8, 4, ByteOrder::Big, stream.frames);
    ByteFile out(to, "wb");
    out.write(info);
    copy_bytes(file, begin, audio.end, out);
    out.close();
}

}  // namespace cli
