#include "leveling/metadata/container_layout.h"

#include <cstring>

namespace quorvane {
namespace {

/** Four letters at an offset. */
bool has_text(const Bytes& bytes, std::size_t at, const char* text) {
    return bytes.size() >= at + 4 && memcmp(bytes.data() + at, text, 4) == 0;
}

}  // namespace

Layout layout_of(ByteFile& file) {
    // The longest opening is Wave64's: two GUIDs with a size between them.
    const Bytes start = file.read(0, 40);
    Layout layout;
    const auto set = [&](Container kind, ByteOrder order, std::size_t opening) {
        layout.kind = kind;
        layout.byte_order = order;
        layout.opening.assign(start.begin(), start.begin() + static_cast<std::ptrdiff_t>(opening));
    };
    if (has_text(start, 8, "WAVE")) {
        if (has_text(start, 0, "RIFF")) {
            set(Container::Wave, ByteOrder::Little, 12);
        }
        if (has_text(start, 0, "RIFX")) {
            set(Container::Wave, ByteOrder::Big, 12);
        }
        if (has_text(start, 0, "RF64") || has_text(start, 0, "BW64")) {
            set(Container::Rf64, ByteOrder::Little, 12);
        }
    } else if (has_text(start, 0, "FORM") &&
               (has_text(start, 8, "AIFF") || has_text(start, 8, "AIFC"))) {
        set(Container::Aiff, ByteOrder::Big, 12);
    } else if (has_text(start, 0, "riff") && has_text(start, 24, "wave") && start.size() == 40) {
        set(Container::Wave64, ByteOrder::Little, 40);
        // Names are GUIDs of 16 bytes, sizes count the chunk's header, and chunks begin at eights.
        layout.id_bytes = kGuidBytes;
        layout.size_bytes = 8;
        layout.size_counts_header = true;
        layout.alignment = 8;
    } else if (has_text(start, 0, "caff") && start.size() >= 8) {
        // The only one whose chunks are not padded.
        set(Container::Caf, ByteOrder::Big, 8);
        layout.size_bytes = 8;
        layout.alignment = 1;
    }
    return layout;
}

}  // namespace quorvane
