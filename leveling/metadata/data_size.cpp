#include "leveling/metadata/data_size.h"

#include <algorithm>
#include <stdexcept>

#include "leveling/metadata/chunk_list.h"
#include "leveling/metadata/outer_tags.h"

/*
 * Whether a header tells the truth about how much audio follows. A recorder that lost its power
 * leaves 0 or what it had written so far; a copy that broke off leaves too much; a pipe leaves the
 * largest number there is. Behind a true size the next chunk begins, or nothing does: what stands
 * there tells the cases apart.
 */

namespace quorvane {
namespace {

// Programs that write to a pipe leave the largest size, signed or not, or one a little below it.
constexpr std::uint64_t kOpenSize32 = 0x7FFFF000;
constexpr std::uint64_t kOpenSize64 = 0x7FFFFFFFFFFFF000;

constexpr std::uint64_t kDiskBlock = 4096;

enum class Next { Chunk, End, Padding, Other };

/**
 * What stands behind the offset: a chunk, zeros or not in front of it; the end, but for less than a
 * header or a disk's block of zeros; more zeros up to the end; or something else.
 */
Next what_follows(ByteFile& file, const Layout& layout, std::uint64_t at, std::uint64_t end) {
    at += (layout.alignment - at % layout.alignment) % layout.alignment;
    if (at + layout.header_bytes() > end) {
        return Next::End;
    }
    Bytes header = file.read(at, layout.header_bytes());
    if (is_padding(header)) {
        const std::uint64_t begin = at;
        at = first_behind_padding(file, layout, at);
        if (at + layout.alignment >= end) {
            return end - begin > kDiskBlock ? Next::Padding : Next::End;
        }
        header = file.read(at, layout.header_bytes());
        if (header.size() < layout.header_bytes()) {
            return Next::Other;
        }
    }
    const std::uint64_t size =
        get_number(header, layout.id_bytes, layout.size_bytes, layout.byte_order);
    const bool name = std::all_of(header.begin(), header.begin() + 4,
                                  [](unsigned char c) { return c >= 0x20 && c < 0x7F; });
    return name && size <= end - at ? Next::Chunk : Next::Other;
}

/** The header of an AU file: mark, offset of the audio, its size; then the coding and the rest. */
DataSize compare_au_size(ByteFile& file, std::uint64_t end) {
    constexpr std::size_t kHeaderBytes = 12;
    const Bytes header = file.read(0, kHeaderBytes);
    DataSize result;
    if (header.size() < kHeaderBytes || !std::equal(header.begin(), header.begin() + 4, ".snd")) {
        return result;
    }
    const std::uint64_t offset = get_number(header, 4, 4, ByteOrder::Big);
    result.promised = get_number(header, 8, 4, ByteOrder::Big);
    result.there = end > offset ? end - offset : 0;
    if (result.promised < kOpenSize32 && result.promised > result.there) {
        result.kind = DataSize::Kind::Short;
    }
    return result;
}

}  // namespace

DataSize compare_data_size(const std::string& path) {
    ByteFile file(path, "rb");
    const Layout layout = layout_of(file);
    DataSize result;
    const std::uint64_t end = file.size();
    if (layout.kind == Container::None) {
        return compare_au_size(file, end);
    }
    for (const Chunk& chunk : chunks_of(file, layout)) {
        if (!is_audio(chunk)) {
            continue;
        }
        const std::uint64_t open = layout.size_bytes == 8 ? kOpenSize64 : kOpenSize32;
        result.promised = chunk.stated;
        result.there = end - chunk.offset;
        // An open end promises nothing, so that nothing is missing.
        if (layout.kind == Container::Rf64 ? chunk.stated == 0 : chunk.stated >= open) {
            return result;
        }
        if (chunk.stated > result.there) {
            result.kind = DataSize::Kind::Short;
            return result;
        }
        const Next next = what_follows(file, layout, chunk.offset + chunk.stated, end);
        if (next == Next::Other) {
            const bool unset = chunk.stated == 0 && result.there > 0;
            result.kind = unset ? DataSize::Kind::Zero : DataSize::Kind::Trailing;
        } else if (next == Next::Padding) {
            result.kind = DataSize::Kind::Padded;
        }
        return result;
    }
    return result;
}

void write_with_data_size(const std::string& from, const std::string& to) {
    ByteFile file(from, "rb");
    const Layout layout = layout_of(file);
    const std::uint64_t end = file.size();
    for (const Chunk& chunk : chunks_of(file, layout)) {
        if (!is_audio(chunk)) {
            continue;
        }
        // The size that another program would have written, its own way of counting included.
        const std::uint64_t extra = layout.size_counts_header ? layout.header_bytes() : 0;
        const std::uint64_t size = end - chunk.offset + extra;
        if (layout.size_bytes == 4 && size > kUnknown32) {
            throw std::runtime_error("its header gives its audio no size, and it exceeds 4 GiB");
        }
        ByteFile out(to, "wb");
        copy_bytes(file, 0, chunk.offset - layout.size_bytes, out);
        Bytes field(layout.size_bytes);
        put_number(field, 0, layout.size_bytes, layout.byte_order, size);
        out.write(field);
        copy_bytes(file, chunk.offset, end, out);
        out.close();
        return;
    }
}

}  // namespace quorvane
