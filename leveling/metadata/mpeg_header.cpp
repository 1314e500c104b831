#include "leveling/metadata/mpeg_header.h"

/*
 * A frame of MPEG audio begins with 32 bits: 11 of sync, version, layer, "no check sum", index of
 * the bit rate, index of the sample rate, padding, channel mode. Its length follows from them
 * (ISO/IEC 11172-3 and 13818-3).
 */

namespace quorvane {

MpegFrame read_mpeg_frame(const unsigned char* at) {
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
    frame.has_checksum = (at[1] & 1) == 0;
    const int rate = kRates[frame.rate_index] / (version == 3 ? 1 : version == 2 ? 2 : 4);
    frame.kilobits = (frame.version_1 ? kVersion1 : kVersion2)[bit_rate - 1];
    frame.bytes = static_cast<std::size_t>(frame.samples() / 8 * frame.kilobits * 1000 / rate) +
                  (at[2] >> 1 & 1);
    return frame;
}

}  // namespace quorvane
