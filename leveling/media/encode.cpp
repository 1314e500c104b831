#include "leveling/media/encode.h"

#include "leveling/audio/sound_file.h"
#include "leveling/media/decode.h"
#include "leveling/media/media_file.h"
#include "leveling/media/remux.h"

namespace quorvane::media {

void encode_as_aac(const std::string& from, const std::string& to) {
    MediaFile file = probe_media(from, {});
    file.demuxer = "mov";  // the output is to be like a file of this kind
    file.muxer = "ipod";
    file.container = "MPEG-4 audio";
    Sound& sound = file.sounds.front();
    sound.bits = 0;
    sound.lossless = false;
    const SndfileHandle samples = open_to_read(from);
    DecodedSound source;
    source.file = from;
    source.sample_rate_hz = samples.samplerate();
    source.channels = samples.channels();
    source.frames = samples.frames();
    source.timeline = Timeline(samples.samplerate());
    source.timeline.add(0, 0);
    write_media(file, {{sound, "aac", from, &source}}, to, [](double) {});
}

}  // namespace quorvane::media
