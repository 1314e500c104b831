#include "cli/audio/momentary.h"

#include <ebur128.h>

#include <algorithm>
#include <limits>
#include <memory>
#include <stdexcept>
#include <vector>

#include "cli/audio/sound_file.h"

namespace cli {

double greatest_momentary_lufs(const std::string& path) {
    struct CloseMeter {
        void operator()(ebur128_state* state) const { ebur128_destroy(&state); }
    };

    SndfileHandle file = open_to_read(path);
    const std::unique_ptr<ebur128_state, CloseMeter> meter(
        ebur128_init(static_cast<unsigned>(file.channels()),
                     static_cast<unsigned>(file.samplerate()), EBUR128_MODE_M));
    if (!meter) {
        throw std::runtime_error("its momentary loudness cannot be measured");
    }
    const sf_count_t step = std::max(file.samplerate() / 10, 1);
    std::vector<float> block(static_cast<std::size_t>(step * file.channels()));
    double greatest = -std::numeric_limits<double>::infinity();
    for (sf_count_t got = 0; (got = file.readf(block.data(), step)) > 0;) {
        double momentary = 0;
        if (ebur128_add_frames_float(meter.get(), block.data(), static_cast<std::size_t>(got)) ||
            ebur128_loudness_momentary(meter.get(), &momentary)) {
            throw std::runtime_error("its momentary loudness cannot be measured");
        }
        greatest = std::max(greatest, momentary);
    }
    return greatest;
}

}  // namespace cli
