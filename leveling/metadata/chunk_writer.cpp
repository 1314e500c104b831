#include "leveling/metadata/chunk_writer.h"

#include <algorithm>
#include <stdexcept>

/*
 * The container's own size is known only at the end: the opening is written first as it was, and
 * once more with the size in it. In RF64 the sizes stand in a chunk of their own, whose place is
 * remembered. CAF has none.
 */

namespace quorvane {
ChunkWriter::ChunkWriter(const Layout& layout, const std::string& path, ExistingFile existing)
    : layout_(layout),
      path_(path),
      file_(path, existing == ExistingFile::kReplaced ? "wb" : "r+b") {
    file_.write(layout.opening);
    written_ = layout.opening.size();
}

void ChunkWriter::reserve_long_sizes(const Bytes& content) {
    long_sizes_ = content;
    long_sizes_at_ = written_ + layout_.header_bytes();
    add({'d', 's', '6', '4'}, content);
}

void ChunkWriter::add(const Bytes& id, const Bytes& content) {
    header(id, content.size());
    file_.write(content);
    written_ += content.size();
    pad();
}

void ChunkWriter::copy(const Chunk& chunk, ByteFile& from) {
    header(chunk.id, chunk.size);
    for (std::uint64_t done = 0; done < chunk.size;) {
        const Bytes block = from.read(
            chunk.offset + done,
            static_cast<std::size_t>(std::min<std::uint64_t>(kFileBlock, chunk.size - done)));
        if (block.empty()) {
            throw std::runtime_error("a chunk ends before its size");
        }
        file_.write(block);
        done += block.size();
    }
    end(chunk);
}

void ChunkWriter::leave(const Chunk& chunk) {
    header(chunk.id, chunk.size);
    file_.read(written_ + chunk.size, 0);  // moves there
    end(chunk);
}

void ChunkWriter::end(const Chunk& chunk) {
    written_ += chunk.size;
    if (is_audio(chunk)) {
        audio_bytes_ = chunk.size;
    }
    pad();
}

void ChunkWriter::finish() {
    file_.close();
    Bytes opening = layout_.opening;
    switch (layout_.kind) {
        case Container::Rf64:
            // All ones here send the reader to ds64: RIFF size, data size, samples (EBU Tech 3306).
            put_number(opening, 4, 4, ByteOrder::Little, kUnknown32);
            put_number(long_sizes_, 0, 8, ByteOrder::Little, written_ - 8);
            put_number(long_sizes_, 8, 8, ByteOrder::Little, audio_bytes_);
            break;
        case Container::Wave64:
            put_number(opening, kGuidBytes, 8, ByteOrder::Little, written_);
            break;
        case Container::Caf:
            return;
        default:
            if (written_ - 8 > kUnknown32) {
                throw std::runtime_error("audio and metadata exceed 4 GiB, the container's limit");
            }
            put_number(opening, 4, 4, layout_.byte_order, written_ - 8);
    }
    ByteFile again(path_, "r+b");
    again.write(opening);
    if (!long_sizes_.empty()) {
        again.read(long_sizes_at_, 0);  // moves there
        again.write(long_sizes_);
    }
    again.close();
}

void ChunkWriter::header(const Bytes& id, std::uint64_t size) {
    Bytes bytes = id;
    bytes.resize(layout_.header_bytes());
    const std::uint64_t total = size + (layout_.size_counts_header ? layout_.header_bytes() : 0);
    // Of RF64's audio: its true size stands in ds64.
    const bool too_long = layout_.size_bytes == 4 && total > kUnknown32;
    put_number(bytes, layout_.id_bytes, layout_.size_bytes, layout_.byte_order,
               too_long ? kUnknown32 : total);
    file_.write(bytes);
    written_ += bytes.size();
}

void ChunkWriter::pad() {
    const std::size_t missing =
        (layout_.alignment - written_ % layout_.alignment) % layout_.alignment;
    file_.write(Bytes(missing, 0));
    written_ += missing;
}

}  // namespace quorvane
