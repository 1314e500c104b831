#include "leveling/metadata/flac_blocks.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <vector>

#include "leveling/metadata/byte_file.h"
#include "leveling/metadata/flac_frames.h"
#include "leveling/metadata/outer_tags.h"
#include "leveling/metadata/vorbis_comment.h"

/*
 * A FLAC file is a mark, metadata blocks of up to 16 MiB and the frames. The blocks are copied in
 * their order; three belong to the new stream: its description, whose MD5 sum and frame sizes are
 * the encoder's, the vendor in the comment, and the seek table, whose offsets point into the
 * frames.
 */

namespace quorvane {
namespace {

constexpr std::size_t kMarkBytes = 4;  // "fLaC"
constexpr std::size_t kHeaderBytes = 4;
constexpr unsigned char kLastBlock = 0x80;
constexpr std::size_t kSeekPointBytes = 18;
constexpr std::uint64_t kMostMetadata = std::uint64_t{256} << 20;  // held in memory
// A seek point that points nowhere (RFC 9639, section 8.5.1).
constexpr std::uint64_t kPlaceholder = 0xFFFFFFFFFFFFFFFF;

enum Type : unsigned char { kStreamInfo = 0, kSeekTable = 3, kComment = 4 };

struct Block {
    unsigned char type;
    Bytes content;
};

/** A FLAC file: its metadata blocks, and where its frames lie. */
struct FlacFile {
    AudioRange stream;  // with the blocks
    std::uint64_t frames_begin = 0;
    std::vector<Block> blocks;

    const Bytes* content(Type type) const {
        const auto found = std::find_if(blocks.begin(), blocks.end(),
                                        [&](const Block& block) { return block.type == type; });
        return found == blocks.end() ? nullptr : &found->content;
    }
};

/** Throws std::runtime_error where the blocks do not reach up to the frames. */
FlacFile read_blocks(ByteFile& file) {
    FlacFile flac;
    flac.stream = audio_between_tags(file);
    std::uint64_t at = flac.stream.begin;
    const Bytes mark = file.read(at, kMarkBytes);
    if (mark.size() < kMarkBytes || memcmp(mark.data(), "fLaC", kMarkBytes) != 0) {
        throw std::runtime_error("a FLAC file does not begin with its mark");
    }
    at += kMarkBytes;
    for (bool last = false; !last;) {
        const Bytes header = file.read(at, kHeaderBytes);
        if (header.size() < kHeaderBytes) {
            throw std::runtime_error("the metadata of a FLAC file are cut short");
        }
        last = header[0] & kLastBlock;
        const auto size = static_cast<std::size_t>(get_number(header, 1, 3, ByteOrder::Big));
        if (at - flac.stream.begin + size > kMostMetadata) {
            throw std::runtime_error(
                "the metadata of a FLAC file exceed 256 MB; the file may be damaged");
        }
        flac.blocks.push_back({static_cast<unsigned char>(header[0] & ~kLastBlock),
                               file.read(at + kHeaderBytes, size)});
        if (flac.blocks.back().content.size() < size) {
            throw std::runtime_error("the metadata of a FLAC file are cut short");
        }
        at += kHeaderBytes + size;
    }
    flac.frames_begin = at;
    return flac;
}

/**
 * A seek table as large as the old one with a point for each of its samples: the frame of the new
 * stream that holds it. What has no frame, or has one already, becomes a placeholder at the end.
 */
Bytes new_seek_table(const Bytes& old_table, ByteFile& file, const FlacFile& flac) {
    const Bytes* info = flac.content(kStreamInfo);
    const std::uint64_t block_samples =
        info && info->size() >= 4 ? get_number(*info, 0, 2, ByteOrder::Big) : 0;
    const std::vector<FlacFrame> frames =
        flac_frames(file, flac.frames_begin, flac.stream.end, block_samples);
    Bytes table;
    const FlacFrame* last = nullptr;
    for (std::size_t at = 0; at + kSeekPointBytes <= old_table.size(); at += kSeekPointBytes) {
        const std::uint64_t sample = get_number(old_table, at, 8, ByteOrder::Big);
        const auto after = std::upper_bound(
            frames.begin(), frames.end(), sample,
            [](std::uint64_t value, const FlacFrame& frame) { return value < frame.first_sample; });
        if (sample == kPlaceholder || after == frames.begin() || &*(after - 1) == last) {
            continue;
        }
        last = &*(after - 1);
        Bytes point(kSeekPointBytes);
        put_number(point, 0, 8, ByteOrder::Big, last->first_sample);
        put_number(point, 8, 8, ByteOrder::Big, last->offset);
        put_number(point, 16, 2, ByteOrder::Big, block_samples);
        table.insert(table.end(), point.begin(), point.end());
    }
    while (table.size() + kSeekPointBytes <= old_table.size()) {
        table.insert(table.end(), 8, 0xFF);
        table.insert(table.end(), kSeekPointBytes - 8, 0);
    }
    return table;
}

/** The old file's blocks in their order, the new stream's own three put in their places. */
std::vector<Block> merged_blocks(const FlacFile& old_flac, ByteFile& file, const FlacFile& flac) {
    std::vector<Block> blocks;
    const Bytes* comment = flac.content(kComment);
    for (const Block& block : old_flac.blocks) {
        if (block.type == kStreamInfo) {
            blocks.push_back({kStreamInfo, *flac.content(kStreamInfo)});
        } else if (block.type == kSeekTable) {
            blocks.push_back({kSeekTable, new_seek_table(block.content, file, flac)});
        } else if (block.type == kComment && comment) {
            blocks.push_back({kComment, merged_comment(block.content, *comment)});
        } else {
            blocks.push_back(block);
        }
    }
    return blocks;
}

}  // namespace

void copy_flac_blocks(const std::string& metadata_from,
                      const std::string& audio_from,
                      const std::string& to) {
    ByteFile old_file(metadata_from, "rb");
    ByteFile file(audio_from, "rb");
    const FlacFile old_flac = read_blocks(old_file);
    const FlacFile flac = read_blocks(file);
    if (!flac.content(kStreamInfo)) {
        throw std::runtime_error("the leveled FLAC file does not describe its stream");
    }
    ByteFile out(to, "wb");
    copy_tags_before(old_file, old_flac.stream, out);
    out.write({'f', 'L', 'a', 'C'});
    const std::vector<Block> blocks = merged_blocks(old_flac, file, flac);
    for (const Block& block : blocks) {
        Bytes header(kHeaderBytes);
        // The last block says so itself: which one it is may differ from the old file.
        header[0] =
            static_cast<unsigned char>(block.type | (&block == &blocks.back() ? kLastBlock : 0));
        put_number(header, 1, 3, ByteOrder::Big, block.content.size());
        out.write(header);
        out.write(block.content);
    }
    copy_bytes(file, flac.frames_begin, flac.stream.end, out);
    copy_tags_behind(old_file, old_flac.stream, out);
    out.close();
}

}  // namespace quorvane
