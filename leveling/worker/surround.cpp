#include "leveling/worker/surround.h"

#include <fmt/format.h>

#include "Common/units.h"
#include "leveling/audio/sound_file.h"
#include "leveling/channels/dialogue.h"

namespace quorvane {

bool takes_channels_apart(const Work& work,
                          const std::string& sound,
                          std::optional<ChannelUse>& use) {
    ChannelUse asked{};
    const int channels = open_to_read(sound).channels();
    if (use_from_text(work.job.options.channels, asked)) {
        use = asked;
    }
    // What is one sound already needs no other way for that.
    return channels > kMostChannels ||
           (channels == kMostChannels && use && *use != ChannelUse::Curve);
}

ChannelLayout layout_of(const Work& work, const std::string& sound) {
    // What FFmpeg decodes has its channels in an order of its own.
    return read_layout(work.backend->decodes() ? sound : work.job.input);
}

void measure_dialogue(Work& work, const std::string& file) {
    if (work.facts.channels > kMostChannels && work.job.options.measure) {
        work.facts.dialogue_lufs = dialogue_loudness(file);
    }
}

void note_dialogue(Work& work) {
    if (work.facts.dialogue_lufs && work.facts.after) {
        const double programme = work.facts.after->integrated_lufs;
        work.facts.notes.push_back(fmt::format(
            "Programme Loudness {:.1f} LUFS, Dialogue Loudness {:.1f} LUFS, "
            "Loudness-to-Dialogue Ratio {:.1f} LU",
            programme, *work.facts.dialogue_lufs, programme - *work.facts.dialogue_lufs));
    }
}

}  // namespace quorvane
