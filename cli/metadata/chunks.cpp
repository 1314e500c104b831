#include "cli/metadata/chunks.h"

#include <algorithm>
#include <cstdint>
#include <functional>
#include <stdexcept>
#include <vector>

#include "cli/metadata/broadcast_chunk.h"
#include "cli/metadata/byte_file.h"
#include "cli/metadata/chunk_list.h"
#include "cli/metadata/chunk_writer.h"
#include "cli/metadata/id3v2.h"

/*
 * The new file is put together from two: the leveled one gives the samples and what describes them,
 * the input everything else. Chunks keep their side of the audio, since some programs look for
 * theirs in front of it only. What the old loudness stands in is edited on the way.
 */

namespace cli {
namespace {

// Bytes; longer chunks are copied as they are.
constexpr std::uint64_t kMostEdited = std::uint64_t{64} << 20;

/**
 * Writes the input's chunks but those that describe its samples, edited where gains stand in them.
 */
class MetadataCopier {
  public:
    MetadataCopier(ByteFile& from,
                   ChunkWriter& to,
                   const LoudnessSource& loudness,
                   const std::string& audio)
        : from_(from), to_(to), loudness_(loudness), audio_(audio) {}

    void operator()(const Chunk& chunk) {
        if (describes_samples(chunk)) {
            return;
        }
        const bool editable = chunk.size <= kMostEdited;
        const std::string name = chunk.name();
        if (editable && name == "bext") {
            to_.add(chunk.id, with_new_loudness(content(chunk), loudness_, audio_));
        } else if (editable && (name == "id3 " || name == "ID3 ")) {
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
    ChunkWriter& to_;
    const LoudnessSource& loudness_;
    const std::string& audio_;
};

}  // namespace

bool copy_chunks(const std::string& metadata_from,
                 const std::string& audio_from,
                 const std::string& to,
                 const LoudnessSource& loudness) {
    ByteFile old_file(metadata_from, "rb");
    ByteFile audio_file(audio_from, "rb");
    const Layout old_layout = layout_of(old_file);
    const Layout layout = layout_of(audio_file);
    // A chunk's numbers have the byte order of its container: between two kinds nothing is copied.
    if (layout.kind == Container::None || layout.kind != old_layout.kind ||
        layout.byte_order != old_layout.byte_order) {
        return false;
    }

    const std::vector<Chunk> old_chunks = chunks_of(old_file, old_layout);
    ChunkWriter writer(layout, to);
    MetadataCopier copy_metadata(old_file, writer, loudness, audio_from);
    // libsndfile takes what follows the audio of a Wave64 file for audio.
    const auto old_audio = layout.kind == Container::Wave64
                               ? old_chunks.end()
                               : std::find_if(old_chunks.begin(), old_chunks.end(), is_audio);
    bool audio_written = false;
    for (const Chunk& chunk : chunks_of(audio_file, layout)) {
        if (chunk.name() == "ds64") {
            writer.reserve_long_sizes(
                audio_file.read(chunk.offset, static_cast<std::size_t>(chunk.size)));
        } else if (is_audio(chunk)) {
            std::for_each(old_chunks.begin(), old_audio, std::ref(copy_metadata));
            writer.copy(chunk, audio_file);
            audio_written = true;
        } else if (describes_samples(chunk)) {
            writer.copy(chunk, audio_file);
        }
    }
    if (!audio_written) {
        throw std::runtime_error("the leveled file holds no audio");
    }
    std::for_each(old_audio, old_chunks.end(), std::ref(copy_metadata));
    writer.finish();
    return true;
}

}  // namespace cli
