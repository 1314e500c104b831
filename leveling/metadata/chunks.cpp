#include "leveling/metadata/chunks.h"

#include <algorithm>
#include <cstdint>
#include <functional>
#include <stdexcept>
#include <vector>

#include "leveling/audio/sound_file.h"
#include "leveling/metadata/broadcast_chunk.h"
#include "leveling/metadata/byte_file.h"
#include "leveling/metadata/chunk_list.h"
#include "leveling/metadata/chunk_writer.h"
#include "leveling/metadata/id3v2.h"

/*
 * The new file is put together from two: the leveled one gives the samples and what describes them,
 * the input everything else. Chunks keep their side of the audio, since some programs look for
 * theirs in front of it only. What the old loudness stands in is edited on the way.
 */

namespace quorvane {
namespace {

/**
 * Up to where the metadata stand in front of the audio. libsndfile takes what follows the audio of
 * a Wave64 file for audio.
 */
std::vector<Chunk>::const_iterator end_of_front(const std::vector<Chunk>& chunks,
                                                const Layout& layout) {
    return layout.kind == Container::Wave64 ? chunks.end()
                                            : std::find_if(chunks.begin(), chunks.end(), is_audio);
}

/** A chunk's numbers have the byte order of its container: between two kinds nothing is copied. */
bool are_of_one_kind(const Layout& a, const Layout& b) {
    return a.kind != Container::None && a.kind == b.kind && a.byte_order == b.byte_order;
}

// Bytes; longer chunks are copied as they are.
constexpr std::uint64_t kMostEdited = std::uint64_t{64} << 20;

bool is_editable(const Chunk& chunk) {
    return chunk.size <= kMostEdited;
}

/** Counts the bytes that a ChunkWriter would write for the same chunks. */
class ChunkCounter {
  public:
    explicit ChunkCounter(const Layout& layout) : layout_(layout) {}

    void add(const Bytes& /*id*/, const Bytes& content) { count(content.size()); }

    void copy(const Chunk& chunk, ByteFile& /*from*/) { count(chunk.size); }

    std::uint64_t bytes() const { return bytes_; }

  private:
    void count(std::uint64_t size) {
        const std::uint64_t bytes = layout_.header_bytes() + size;
        bytes_ += (bytes + layout_.alignment - 1) / layout_.alignment * layout_.alignment;
    }

    const Layout& layout_;
    std::uint64_t bytes_ = 0;
};

/**
 * Writes the input's chunks but those that describe its samples, edited where gains stand in them.
 */
template <class Writer>
class MetadataCopier {
  public:
    MetadataCopier(ByteFile& from,
                   Writer& to,
                   const LoudnessSource& loudness,
                   const SndfileHandle& audio)
        : from_(from), to_(to), loudness_(loudness), audio_(audio) {}

    void operator()(const Chunk& chunk) {
        if (describes_samples(chunk)) {
            return;
        }
        const std::string name = chunk.name();
        if (is_editable(chunk) && name == "bext") {
            to_.add(chunk.id, with_new_loudness(content(chunk), loudness_, audio_));
        } else if (is_editable(chunk) && (name == "id3 " || name == "ID3 ")) {
            to_.add(chunk.id, without_player_gains(content(chunk)));
        } else {
            to_.copy(chunk, from_);
        }
    }

  private:
    Bytes content(const Chunk& chunk) {
        return from_.read(chunk.offset, static_cast<std::size_t>(chunk.size));
    }

    ByteFile& from_;
    Writer& to_;
    const LoudnessSource& loudness_;
    const SndfileHandle& audio_;
};

/** A chunk container and what it holds. */
struct ChunkFile {
    explicit ChunkFile(const std::string& path, std::uint64_t begin = 0)
        : file(path, "rb", begin), layout(layout_of(file)), chunks(chunks_of(file, layout)) {}

    ByteFile file;
    const Layout layout;
    const std::vector<Chunk> chunks;
};

/** Whether it has no chunks but those that every file has, all in whole, the audio last. */
bool holds_audio_alone(ChunkFile& leveled) {
    const std::vector<Chunk>& chunks = leveled.chunks;
    if (chunks.empty() || !is_audio(chunks.back()) ||
        !std::all_of(chunks.begin(), chunks.end(), describes_samples)) {
        return false;
    }
    const Chunk& audio = chunks.back();
    const std::uint64_t end = audio.offset + audio.size;
    return audio.size == audio.stated && leveled.file.size() < end + leveled.layout.alignment;
}

/** The bytes of the metadata that comes to stand in front of the audio. */
std::uint64_t front_bytes(ChunkFile& old, const SndfileHandle& audio) {
    const LoudnessSource loudness = [] { return nullptr; };
    ChunkCounter counter(old.layout);
    std::for_each(old.chunks.begin(), end_of_front(old.chunks, old.layout),
                  MetadataCopier(old.file, counter, loudness, audio));
    return counter.bytes();
}

/** A PEAK chunk whose time of writing, its second number of 32 bits, is 0. */
Bytes without_time(Bytes peak) {
    constexpr std::size_t kTimeAt = 4;
    constexpr std::size_t kTimeBytes = 4;
    if (peak.size() >= kTimeAt + kTimeBytes) {
        std::fill_n(peak.begin() + kTimeAt, kTimeBytes, static_cast<unsigned char>(0));
    }
    return peak;
}

/** One file out of two, chunk by chunk; take_audio writes the one that holds the samples. */
void put_together(ChunkFile& old,
                  ChunkFile& leveled,
                  ChunkWriter& writer,
                  MetadataCopier<ChunkWriter> copy_metadata,
                  const std::function<void(const Chunk&)>& take_audio) {
    const auto old_audio = end_of_front(old.chunks, old.layout);
    for (const Chunk& chunk : leveled.chunks) {
        if (chunk.name() == "ds64") {
            writer.reserve_long_sizes(
                leveled.file.read(chunk.offset, static_cast<std::size_t>(chunk.size)));
        } else if (is_audio(chunk)) {
            std::for_each(old.chunks.begin(), old_audio, copy_metadata);
            take_audio(chunk);
        } else if (chunk.name() == "PEAK") {
            writer.add(chunk.id, without_time(leveled.file.read(
                                     chunk.offset, static_cast<std::size_t>(chunk.size))));
        } else if (describes_samples(chunk)) {
            writer.copy(chunk, leveled.file);
        }
    }
    std::for_each(old_audio, old.chunks.end(), copy_metadata);
    writer.finish();
}

}  // namespace

bool copy_chunks(const std::string& metadata_from,
                 const std::string& audio_from,
                 const std::string& to,
                 const LoudnessSource& loudness) {
    ChunkFile old(metadata_from);
    ChunkFile leveled(audio_from);
    if (!are_of_one_kind(leveled.layout, old.layout)) {
        return false;
    }
    if (std::none_of(leveled.chunks.begin(), leveled.chunks.end(), is_audio)) {
        throw std::runtime_error("the leveled file holds no audio");
    }
    const SndfileHandle audio = open_to_read(audio_from);
    ChunkWriter writer(leveled.layout, to);
    put_together(old, leveled, writer, MetadataCopier(old.file, writer, loudness, audio),
                 [&](const Chunk& chunk) { writer.copy(chunk, leveled.file); });
    return true;
}

std::optional<std::uint64_t> room_for_chunks(const std::string& metadata_from) {
    ChunkFile old(metadata_from);
    const auto has_loudness = [&](const Chunk& chunk) {
        return chunk.name() == "bext" &&
               (!is_editable(chunk) ||
                tells_loudness(old.file.read(chunk.offset, static_cast<std::size_t>(chunk.size))));
    };
    if (old.layout.kind == Container::None ||
        std::any_of(old.chunks.begin(), old.chunks.end(), has_loudness)) {
        return std::nullopt;
    }
    const std::uint64_t room = front_bytes(old, open_to_read(metadata_from));
    // libsndfile writes the others at the beginning of a file only.
    const bool is_free = old.layout.kind == Container::Wave || old.layout.kind == Container::Aiff;
    return is_free || room == 0 ? std::optional(room) : std::nullopt;
}

bool add_chunks(const std::string& metadata_from, const std::string& to, std::uint64_t room) {
    ChunkFile old(metadata_from);
    ChunkFile leveled(to, room);
    if (!are_of_one_kind(leveled.layout, old.layout) || !holds_audio_alone(leveled)) {
        return false;
    }
    const SndfileHandle audio = open_behind(to, room);
    if (front_bytes(old, audio) != room) {
        return false;
    }
    const LoudnessSource loudness = [] { return nullptr; };
    ChunkWriter writer(leveled.layout, to, ChunkWriter::ExistingFile::kFilledIn);
    put_together(old, leveled, writer, MetadataCopier(old.file, writer, loudness, audio),
                 [&](const Chunk& chunk) { writer.leave(chunk); });
    return true;
}

}  // namespace quorvane
