#include "cli/worker/carrier.h"

#include <fmt/format.h>

#include <stdexcept>

#include "cli/audio/sound_file.h"
#include "cli/facts/file_error.h"
#include "cli/worker/media_module.h"
#include "cli/worker/sound_file_carrier.h"

namespace cli {
namespace {

bool libsndfile_reads(const std::string& path) {
    try {
        open_to_read(path);
        return true;
    } catch (const std::runtime_error&) {
        return false;
    }
}

}  // namespace

void require_channels(const FileFacts& facts) {
    constexpr int kMostChannels = 2;
    if (facts.channels > kMostChannels) {
        throw FileError(fmt::format("it has {} channels, at most {} can be leveled", facts.channels,
                                    kMostChannels));
    }
}

std::unique_ptr<Carrier> make_carrier(const Job& job) {
    // What libsndfile reads stays with it, and costs nobody the loading of FFmpeg's libraries.
    if (!libsndfile_reads(job.input) && media_module().is_media(job.input)) {
        return media_module().make_carrier(job);
    }
    return std::make_unique<SoundFileCarrier>(job);
}

}  // namespace cli
