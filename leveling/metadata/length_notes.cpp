#include "leveling/metadata/length_notes.h"

#include <fmt/format.h>

#include <cstdint>

#include "leveling/audio/sound_file.h"
#include "leveling/facts/file_error.h"
#include "leveling/metadata/ogg_pages.h"

namespace quorvane {
namespace {

/** Up to this share of the audio, unknown bytes behind it are taken for a mark of some program. */
constexpr std::uint64_t kMostTrailingShare = 20;

// Encoders put some samples of their own in front and behind, which decoders leave out.
constexpr std::uint64_t kMostTrimmed = 4;  // MPEG frames

/** frames: those that libsndfile finds in the stream. */
std::string mpeg_note(const MpegStream& stream, std::uint64_t frames, int rate_hz) {
    const bool counted = stream.told && *stream.told >= stream.frames;
    const auto samples = static_cast<std::uint64_t>(stream.samples_per_frame);
    if (!counted && stream.frames * samples > frames + kMostTrimmed * samples) {
        const double rate = rate_hz;
        throw FileError(fmt::format(
            "its header does not count its frames: only {:.2f} s of {:.2f} s would be read",
            static_cast<double>(frames) / rate,
            static_cast<double>(stream.frames * samples) / rate));
    }
    return length_note(stream);
}

}  // namespace

std::string length_note(const DataSize& data) {
    if (data.kind == DataSize::Kind::Zero) {
        return "its header gives its audio the size 0";
    }
    if (data.kind == DataSize::Kind::Short) {
        return fmt::format("is cut short: {} of {} bytes of audio are there", data.there,
                           data.promised);
    }
    if (data.kind == DataSize::Kind::Fits) {
        return "";
    }
    const std::uint64_t rest = data.there - data.promised;
    if (data.kind == DataSize::Kind::Padded) {
        return fmt::format("{} bytes of zeros behind its audio were left out", rest);
    }
    const std::string text = fmt::format(
        "its header announces {} bytes of audio, but {} more follow that are not a chunk",
        data.promised, rest);
    if (rest > data.promised / kMostTrailingShare) {
        throw FileError(text + "; its header needs a repair first");
    }
    return text + " and were left out";
}

std::string length_note(const MpegStream& stream) {
    return stream.told && *stream.told > stream.frames + 1
               ? fmt::format("is cut short: {} of {} MPEG frames are there", stream.frames,
                             *stream.told)
               : "";
}

std::string length_note(const std::string& path) {
    const std::string note = length_note(compare_data_size(path));
    const SndfileHandle file = open_to_read(path);
    const int container = file.format() & SF_FORMAT_TYPEMASK;
    if (container == SF_FORMAT_MPEG) {
        const auto stream = count_mpeg_frames(path);
        return stream ? mpeg_note(*stream, static_cast<std::uint64_t>(file.frames()),
                                  file.samplerate())
                      : "";
    }
    return container == SF_FORMAT_OGG && !ogg_ends_whole(path) ? kOggCutShort : note;
}

}  // namespace quorvane
