#include "leveling/worker/audio_backend.h"

#include <fmt/format.h>

#include <filesystem>
#include <stdexcept>
#include <system_error>

#include "Common/units.h"
#include "leveling/audio/sound_file.h"
#include "leveling/channels/channel_leveling.h"
#include "leveling/facts/file_error.h"
#include "leveling/worker/media_module.h"
#include "leveling/worker/sound_file_backend.h"

namespace quorvane {
namespace {

/** Whether libsndfile reads the job's input and, where an output is wanted, writes such files. */
bool libsndfile_serves(const Job& job) {
    try {
        const SndfileHandle file = open_to_read(job.input);
        SF_INFO info{};
        info.format = file.format();
        info.channels = file.channels();
        info.samplerate = file.samplerate();
        // Its surround files of Ogg say nothing of the channels' places.
        if ((info.format & SF_FORMAT_TYPEMASK) == SF_FORMAT_OGG && info.channels > kMostChannels) {
            return false;
        }
        // It claims to write layers I and II, too.
        const int coding = info.format & SF_FORMAT_SUBMASK;
        const bool is_written = sf_format_check(&info) && coding != SF_FORMAT_MPEG_LAYER_I &&
                                coding != SF_FORMAT_MPEG_LAYER_II;
        return job.output.empty() || is_written;
    } catch (const std::runtime_error&) {
        return false;
    }
}

void refuse_empty(const std::string& path) {
    std::error_code error;
    if (std::filesystem::is_regular_file(path, error) &&
        std::filesystem::file_size(path, error) == 0 && !error) {
        throw FileError("is empty: it has no bytes");
    }
}

}  // namespace

void require_channels(const FileFacts& facts, const JobOptions& options) {
    const int most = options.plain || !options.group.empty() ? kMostChannels : kMostFileChannels;
    if (facts.channels > most) {
        throw FileError(
            fmt::format("it has {} channels, at most {} can be leveled", facts.channels, most));
    }
}

std::unique_ptr<AudioBackend> make_backend(const Job& job) {
    // What libsndfile reads stays with it, without the cost of loading FFmpeg's libraries.
    // A read error of the disk looks to it like an unknown format, and the other way gives other
    // bytes: only a second refusal counts.
    refuse_empty(job.input);
    const bool is_served = libsndfile_serves(job) || libsndfile_serves(job);
    if (!is_served && media_module().can_serve(job.input)) {
        return media_module().make_backend(job);
    }
    return std::make_unique<SoundFileBackend>(job);
}

}  // namespace quorvane
