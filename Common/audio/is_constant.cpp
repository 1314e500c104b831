#include "Common/audio/is_constant.h"

#include <algorithm>
#include <vector>

#include "Common/units.h"

bool is_constant(SoundFile& file, SF_INFO info) {
    if (info.frames == 0) {
        return true;
    }
    const std::size_t channels = static_cast<std::size_t>(info.channels);
    // Compared exactly: a recording with a trace of noise is not constant.
    std::vector<double> first(channels);
    file.ReadDoubleFrames(first.data(), 1);
    file.Seek(0, SEEK_SET);

    std::vector<double> block(kLookFrames * channels);
    const long long blocks = ceildiv(info.frames, kLookFrames);
    for (long long b = 0; b < blocks; ++b) {
        const long long frames = file.ReadDoubleFrames(block.data(), kLookFrames);
        for (std::size_t i = 0; i < static_cast<std::size_t>(frames) * channels; i += channels) {
            if (!std::equal(first.begin(), first.end(), block.begin() + static_cast<long>(i))) {
                return false;
            }
        }
        // The header promised more than there is. What there was is constant; a caller sees by the
        // position how much that is.
        if (frames == 0) {
            break;
        }
    }
    return true;
}
