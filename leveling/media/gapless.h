#pragma once

#include <cstdint>
#include <optional>

#include "leveling/media/media_input.h"

namespace quorvane::media {

/** Which of the decoded samples are heard. */
struct Gapless {
    std::int64_t delay = 0;   // samples that the encoder put in front
    std::int64_t frames = 0;  // behind them; the rest fills the last block
};

/**
 * What the tag iTunSMPB states of an MP4 file whose only stream is this sound and that has no edit
 * list. Nothing where the tag is missing or does not fit the stream, as after editing.
 */
std::optional<Gapless> gapless_of(const MediaInput& input, const AVStream& stream);

}  // namespace quorvane::media
