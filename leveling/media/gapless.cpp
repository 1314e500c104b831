#include "leveling/media/gapless.h"

#include <cinttypes>
#include <cstdio>
#include <cstdlib>

/*
 * The tag holds hexadecimal numbers: 0, delay, padding, samples between them, and more that is not
 * used. FFmpeg's demuxer skips the delay, unless the file has an edit list, but neither moves the
 * times back by it nor leaves out the padding.
 */

namespace quorvane::media {
namespace {

constexpr std::int64_t kMostPadding = 4096;  // samples; two blocks of HE-AAC
// Muxers shorten the duration of the last block in different ways.
constexpr std::int64_t kLeastPadding = -2048;

/** Whether the sound is the only stream, apart from a picture of the cover. */
bool is_alone(const AVFormatContext& context) {
    int others = 0;
    for (unsigned i = 0; i < context.nb_streams; ++i) {
        others += (context.streams[i]->disposition & AV_DISPOSITION_ATTACHED_PIC) == 0;
    }
    return others == 1;
}

}  // namespace

// Nothing for a tag that is missing, malformed, or beside other streams: players ignore it then.
std::optional<Gapless> gapless_of(const MediaInput& input, const AVStream& stream) {
    const AVDictionaryEntry* tag = av_dict_get(input.context().metadata, "iTunSMPB", nullptr, 0);
    std::uint64_t delay = 0;
    std::uint64_t padding = 0;
    std::uint64_t frames = 0;
    if (!tag || input.demuxer() != "mov" || !is_alone(input.context()) ||
        std::sscanf(tag->value, "%*x %" SCNx64 " %" SCNx64 " %" SCNx64, &delay, &padding,
                    &frames) != 3 ||
        frames == 0 || frames > INT64_MAX / 2 || delay > INT32_MAX) {
        return std::nullopt;
    }
    const Gapless result{static_cast<std::int64_t>(delay), static_cast<std::int64_t>(frames)};
    const AVRational clock{1, stream.codecpar->sample_rate};
    // The demuxer states the delay as the start where it skips it.
    const bool is_skipped =
        stream.start_time != AV_NOPTS_VALUE && stream.start_time > 0 &&
        av_rescale_q(stream.start_time, stream.time_base, clock) == result.delay;
    const std::int64_t over =
        av_rescale_q(stream.duration, stream.time_base, clock) - result.delay - result.frames;
    return is_skipped && over >= kLeastPadding && over <= kMostPadding ? std::optional(result)
                                                                       : std::nullopt;
}

}  // namespace quorvane::media
