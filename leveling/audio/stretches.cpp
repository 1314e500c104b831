#include "leveling/audio/stretches.h"

#include <stdexcept>

#include "leveling/audio/buffered_input.h"
#include "leveling/audio/sound_file.h"

namespace quorvane {

Samples read_stretches(const std::string& path, const std::vector<Stretch>& stretches) {
    BufferedInput input(path);
    SndfileHandle file = open_to_read(input);
    Samples samples{file.samplerate(), file.channels(), {}};
    const auto channels = static_cast<std::size_t>(samples.channels);
    sf_count_t all = 0;
    for (const Stretch& stretch : stretches) {
        const auto frames = static_cast<sf_count_t>(stretch.seconds * samples.sample_rate_hz);
        const std::size_t begin = samples.values.size();
        samples.values.resize(begin + static_cast<std::size_t>(frames) * channels);
        const auto from = static_cast<sf_count_t>(stretch.from_s * samples.sample_rate_hz);
        if (file.seek(from, SEEK_SET) == from) {
            all += file.readf(samples.values.data() + begin, frames);
        }
    }
    if (all <= 0) {
        throw std::runtime_error("has no sound there");
    }
    return samples;
}

}  // namespace quorvane
