#include "Common/audio/is_constant.h"

#include <algorithm>
#include <stdexcept>
#include <vector>

#include "Common/units.h"

namespace {

/** A file that cannot be read is not constant for it: throws std::runtime_error with the cause. */
long long read_frames(SoundFile& file, double* samples, long long frames) {
    const long long read = file.ReadDoubleFrames(samples, frames);
    if (sf_error(file.handle().get()) != SF_ERR_NO_ERROR) {
        throw std::runtime_error(file.path() + ": cannot be read: " +
                                 SoundFile::GetSndFileStrError(file.handle().get()));
    }
    return read;
}

}  // namespace

bool is_constant(SoundFile& file, SF_INFO info) {
    constexpr long long kBlockFrames = 8192;
    if (info.frames == 0) {
        return true;
    }
    const std::size_t channels = static_cast<std::size_t>(info.channels);
    // Compared exactly: a recording with a trace of noise is not constant.
    std::vector<double> first(channels);
    read_frames(file, first.data(), 1);
    file.Seek(0, SEEK_SET);

    std::vector<double> block(kBlockFrames * channels);
    const long long blocks = ceildiv(info.frames, kBlockFrames);
    for (long long b = 0; b < blocks; ++b) {
        const long long frames = read_frames(file, block.data(), kBlockFrames);
        for (std::size_t i = 0; i < static_cast<std::size_t>(frames) * channels; i += channels) {
            if (!std::equal(first.begin(), first.end(), block.begin() + static_cast<long>(i))) {
                return false;
            }
        }
        // The header promised more than there is; what there was is constant.
        if (frames == 0) {
            break;
        }
    }
    return true;
}
