#include "leveling/metadata/mpeg_writer.h"

#include <algorithm>
#include <boost/crc.hpp>
#include <stdexcept>

#include "leveling/metadata/mpeg_header.h"
#include "leveling/metadata/outer_tags.h"

/*
 * A frame whose side information is all zero is silent, needs nothing of the frames before it and
 * leaves its main data to those behind it. So silence of any length can be put into a stream, and
 * a frame that cannot be decoded can be muted and still serve as a part of the bit reservoir.
 */

namespace quorvane {
namespace {

constexpr int kLameDelay = 576;       // samples that LAME puts in front, at every sample rate
constexpr int kMostTrim = 0xFFF;      // 12 bits
constexpr std::size_t kPlaces = 100;  // of the table for seeking
constexpr std::size_t kLameBytes = 36;

/** The header of a frame with at least so many bytes, of a stream with such headers. */
Bytes header_for(const Bytes& like, std::size_t least_bytes) {
    Bytes header(like.begin(), like.begin() + kMpegHeaderBytes);
    header[1] |= 1;     // no check sum
    header[2] &= 0x0D;  // no padding, no bit rate
    for (unsigned bit_rate = 1; bit_rate < 15; ++bit_rate) {
        header[2] = static_cast<unsigned char>((header[2] & 0x0F) | bit_rate << 4);
        if (read_mpeg_frame(header.data()).bytes >= least_bytes) {
            break;
        }
    }
    return header;
}

Bytes silent_frame(const Bytes& like) {
    Bytes frame =
        header_for(like, kMpegHeaderBytes + read_mpeg_frame(like.data()).side_info_bytes());
    frame.resize(read_mpeg_frame(frame.data()).bytes, 0);
    return frame;
}

/** LAME's extension: encoder, method, ..., delay and padding, ..., length, check sums. */
void put_trim(Bytes& info, std::size_t at, const MpegTrim& trim, std::uint64_t stream_bytes) {
    constexpr unsigned char kConstantBitRate = 1;
    constexpr char kEncoder[] = "LAME     ";
    std::copy_n(kEncoder, sizeof kEncoder - 1, info.begin() + static_cast<std::ptrdiff_t>(at));
    info[at + 9] = kConstantBitRate;
    const int kilobits = read_mpeg_frame(info.data()).kilobits;
    info[at + 20] = static_cast<unsigned char>(std::min(kilobits, 0xFF));
    put_number(info, at + 21, 3, ByteOrder::Big,
               static_cast<std::uint64_t>(trim.delay << 12 | trim.padding));
    put_number(info, at + 28, 4, ByteOrder::Big, stream_bytes);
    boost::crc_16_type sum;
    sum.process_bytes(info.data(), at + kLameBytes - 2);
    put_number(info, at + kLameBytes - 2, 2, ByteOrder::Big, sum.checksum());
}

/** The first frame: the count of the others, and what decoders leave out of them. */
Bytes info_frame(const Bytes& like,
                 std::uint64_t frames,
                 std::uint64_t bytes,
                 const MpegTrim& trim) {
    constexpr std::uint64_t kFields = 7;  // count, bytes, places
    constexpr std::size_t kFieldBytes = 4 + 4 + kPlaces;
    const std::size_t mark = kMpegHeaderBytes + read_mpeg_frame(like.data()).side_info_bytes();
    Bytes info = header_for(like, mark + 8 + kFieldBytes + kLameBytes);
    info.resize(read_mpeg_frame(info.data()).bytes, 0);
    const std::uint64_t all_bytes = info.size() + bytes;
    std::copy_n("Info", 4, info.begin() + static_cast<std::ptrdiff_t>(mark));
    put_number(info, mark + 4, 4, ByteOrder::Big, kFields);
    put_number(info, mark + 8, 4, ByteOrder::Big, frames);
    put_number(info, mark + 12, 4, ByteOrder::Big, all_bytes);
    for (std::size_t i = 0; i < kPlaces; ++i) {
        info[mark + 16 + i] = static_cast<unsigned char>(i * 256 / kPlaces);
    }
    put_trim(info, mark + 8 + kFieldBytes, trim, all_bytes);
    return info;
}

/** Writes the frames of a run with silent side information. */
void write_muted(ByteFile& file, const MpegRun& run, ByteFile& out) {
    for (std::uint64_t at = run.begin; at < run.end;) {
        const Bytes header = file.read(at, kMpegHeaderBytes);
        const MpegFrame frame = read_mpeg_frame(header.data());
        Bytes bytes = file.read(at, frame.bytes);
        std::fill_n(bytes.begin() + static_cast<std::ptrdiff_t>(frame.side_info_at()),
                    frame.side_info_bytes(), static_cast<unsigned char>(0));
        out.write(bytes);
        at += frame.bytes;
    }
}

/** A decoder's last samples need a frame behind them: no less than its delay is left out. */
MpegTrim trim_of_what_is_there(const MpegStream& stream) {
    const int padding = stream.missing > 0 ? 0 : stream.trim->padding;
    return {stream.trim->delay, std::max(padding, kMpegDecoderDelay)};
}

Bytes first_header(ByteFile& file, const MpegStream& stream) {
    if (stream.runs.empty()) {
        throw std::runtime_error("it has no frame of MPEG audio");
    }
    return file.read(stream.runs.front().begin, kMpegHeaderBytes);
}

}  // namespace

void write_repaired_mpeg(const std::string& from, const MpegStream& stream, const std::string& to) {
    ByteFile file(from, "rb");
    const Bytes like = first_header(file, stream);
    const Bytes silence = silent_frame(like);
    // A stream without a trim is heard as a whole, but libsndfile's decoder leaves its own delay
    // out of every stream with a count: a silent frame in front makes up for that.
    const bool is_whole = !stream.trim;
    std::uint64_t bytes = is_whole ? silence.size() : 0;
    for (const MpegRun& run : stream.runs) {
        bytes += run.lost * silence.size() + (run.end - run.begin);
    }
    ByteFile out(to, "wb");
    out.write(info_frame(
        like, stream.frames_with_holes() + (is_whole ? 1 : 0), bytes,
        is_whole ? MpegTrim{stream.samples_per_frame - kMpegDecoderDelay, kMpegDecoderDelay}
                 : trim_of_what_is_there(stream)));
    if (is_whole) {
        out.write(silence);
    }
    for (const MpegRun& run : stream.runs) {
        for (std::uint64_t i = 0; i < run.lost; ++i) {
            out.write(silence);
        }
        if (run.cut_off) {
            write_muted(file, run, out);
        } else {
            copy_bytes(file, run.begin, run.end, out);
        }
    }
    out.close();
}

void write_mpeg_with_length(const std::string& from, std::int64_t samples, const std::string& to) {
    const std::optional<MpegStream> stream = count_mpeg_frames(from);
    if (!stream) {
        throw std::runtime_error("the encoder wrote no frame of MPEG audio");
    }
    const std::int64_t coded =
        static_cast<std::int64_t>(stream->frames) * stream->samples_per_frame;
    const std::int64_t padding = coded - kLameDelay - samples;
    if (padding < 0 || padding > kMostTrim || stream->has_holes()) {
        throw std::runtime_error("the encoder wrote an MPEG stream of another length");
    }
    ByteFile file(from, "rb");
    const std::uint64_t begin = stream->runs.front().begin;
    const std::uint64_t end = stream->runs.back().end;
    ByteFile out(to, "wb");
    out.write(info_frame(first_header(file, *stream), stream->frames, end - begin,
                         MpegTrim{kLameDelay, static_cast<int>(padding)}));
    copy_bytes(file, begin, end, out);
    out.close();
}

}  // namespace quorvane
