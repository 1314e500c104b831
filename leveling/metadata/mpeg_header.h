#pragma once

#include <cstddef>

namespace quorvane {

constexpr std::size_t kMpegHeaderBytes = 4;

/** The header of one frame of MPEG audio, layer III. */
struct MpegFrame {
    bool version_1 = false;
    bool mono = false;
    bool has_checksum = false;
    unsigned rate_index = 0;
    unsigned version_bits = 0;
    int kilobits = 0;       // per second
    std::size_t bytes = 0;  // of the frame; 0: no frame of layer III with a bit rate

    int samples() const { return version_1 ? 1152 : 576; }

    std::size_t side_info_at() const { return kMpegHeaderBytes + (has_checksum ? 2 : 0); }

    std::size_t side_info_bytes() const { return version_1 ? (mono ? 17 : 32) : (mono ? 9 : 17); }

    /** Bytes of coded samples: of this frame or, from the bit reservoir, of the next ones. */
    std::size_t main_data_bytes() const {
        const std::size_t before = side_info_at() + side_info_bytes();
        return bytes > before ? bytes - before : 0;
    }

    bool same_stream(const MpegFrame& other) const {
        return version_bits == other.version_bits && rate_index == other.rate_index;
    }
};

/** at: four bytes. Layers I and II, and frames of a free bit rate, have no length here. */
MpegFrame read_mpeg_frame(const unsigned char* at);

}  // namespace quorvane
