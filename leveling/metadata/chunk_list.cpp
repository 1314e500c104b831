#include "leveling/metadata/chunk_list.h"

#include <fmt/format.h>

#include <algorithm>
#include <set>

#include "leveling/facts/file_error.h"

namespace quorvane {
namespace {

constexpr std::size_t kMostChunks = 10000;

}  // namespace

bool is_padding(const Bytes& header) {
    return std::all_of(header.begin(), header.end(), [](unsigned char byte) { return byte == 0; });
}

std::uint64_t first_behind_padding(ByteFile& file, const Layout& layout, std::uint64_t at) {
    const std::uint64_t next = file.end_of_zeros(at);
    return next - next % layout.alignment;
}

std::vector<Chunk> chunks_of(ByteFile& file, const Layout& layout) {
    std::vector<Chunk> chunks;
    const std::uint64_t end = file.size();
    std::uint64_t long_data = 0;
    for (std::uint64_t at = layout.opening.size(); at + layout.header_bytes() <= end;) {
        const Bytes header = file.read(at, layout.header_bytes());
        if (is_padding(header)) {
            const std::uint64_t next = first_behind_padding(file, layout, at);
            at = std::max(next, at + layout.alignment);
            continue;
        }
        if (chunks.size() == kMostChunks) {
            throw FileError(
                fmt::format("its container holds more than {} chunks, which no program writes; it "
                            "may be damaged",
                            kMostChunks));
        }
        Chunk chunk;
        chunk.id.assign(header.begin(),
                        header.begin() + static_cast<std::ptrdiff_t>(layout.id_bytes));
        chunk.size = get_number(header, layout.id_bytes, layout.size_bytes, layout.byte_order);
        chunk.offset = at + layout.header_bytes();
        if (layout.size_counts_header) {
            if (chunk.size < layout.header_bytes()) {
                break;
            }
            chunk.size -= layout.header_bytes();
        }
        if (chunk.name() == "ds64" && chunk.size >= 24) {
            long_data = get_number(file.read(chunk.offset, 24), 8, 8, ByteOrder::Little);
        }
        // The audio's true size stands in ds64, which comes before it.
        if (layout.kind == Container::Rf64 && chunk.name() == "data" && chunk.size == kUnknown32) {
            chunk.size = long_data;
        }
        chunk.stated = chunk.size;
        if (chunk.size > end - chunk.offset) {
            // A chunk that is cut off is of no use, but audio is: what is there of it counts.
            const std::string name = chunk.name();
            if (name != "data" && name != "SSND") {
                break;
            }
            chunk.size = end - chunk.offset;
        }
        chunks.push_back(chunk);
        at = chunk.offset + chunk.size;
        at += (layout.alignment - at % layout.alignment) % layout.alignment;
    }
    return chunks;
}

bool is_audio(const Chunk& chunk) {
    return chunk.name() == "data" || chunk.name() == "SSND";
}

bool describes_samples(const Chunk& chunk) {
    // They say how many samples there are, how they are coded and how loud, or are padding.
    static const std::set<std::string> names = {
        "fmt ", "fact", "ds64", "PEAK", "levl", "slnt", "JUNK", "junk", "PAD ", "FLLR",  // WAV, W64
        "COMM", "FVER",                                                                  // AIFF
        "desc", "kuki", "pakt", "free", "peak", "ovvw"};                                 // CAF
    return is_audio(chunk) || names.count(chunk.name()) != 0;
}

}  // namespace quorvane
