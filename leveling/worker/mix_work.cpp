#include "leveling/worker/mix_work.h"

#include <sndfile.h>

#include "leveling/audio/recode.h"
#include "leveling/audio/sound_file.h"
#include "leveling/facts/destinations.h"
#include "leveling/facts/file_error.h"
#include "leveling/metadata/mpeg_writer.h"
#include "leveling/publish/publish.h"
#include "leveling/worker/media_module.h"

namespace quorvane {
namespace {

constexpr int kOpusRate_hz = 48000;
constexpr double kCeiling_dbtp = -1;
constexpr double kLossyCeiling_dbtp = -2;  // coding adds to peaks
constexpr int kFloats = SF_FORMAT_WAV | SF_FORMAT_FLOAT;

class MixMaker {
  public:
    explicit MixMaker(const MixOrder& order) : order_(order) {}

    MadeMix go() {
        MadeMix made;
        if (!order_.destination.empty()) {
            publish_sum(made);
        } else if (is_coded()) {
            const std::string limited = order_.scratch + "/limited.wav";
            write_mix(order_.sum, limited, kFloats, kLossyCeiling_dbtp);
            made.path = encode(limited);
        } else {
            made.path = order_.scratch + "/mix." + order_.extension;
            write_mix(order_.sum, made.path, order_.format.format, kCeiling_dbtp);
        }
        made.readable = readable(made.path);
        return made;
    }

  private:
    bool is_coded() const { return order_.format.is_lossy(); }

    void publish_sum(MadeMix& made) const {
        const std::string rendered = order_.scratch + "/published.wav";
        const auto encode_and_read = [&](const std::string& audio) {
            return Reading{is_coded() ? readable(encode(audio)) : audio, ""};
        };
        const Published published = publish(*find_destination(order_.destination), order_.sum,
                                            rendered, encode_and_read, [](double) {});
        made.publishing = published.facts;
        made.path = order_.scratch + "/mix." + order_.extension;
        if (!is_coded()) {
            write_mix(published.path, made.path, order_.format.format, std::nullopt);
        }
    }

    std::string encode(const std::string& audio) const {
        std::string coded = order_.scratch + "/mix." + order_.extension;
        if (order_.format.is_aac) {
            media_module().encode_as_aac(audio, coded);
            return coded;
        }
        const SndfileHandle samples = open_to_read(audio);
        const bool is_mpeg = (order_.format.format & SF_FORMAT_TYPEMASK) == SF_FORMAT_MPEG;
        const std::string first = is_mpeg ? order_.scratch + "/bare.mp3" : coded;
        encode_at(audio, first, order_.format.format,
                  static_cast<double>(order_.format.bits_per_second) * samples.channels());
        if (is_mpeg) {
            write_mpeg_with_length(first, samples.frames(), coded);
        }
        return coded;
    }

    std::string readable(const std::string& coded) const {
        if (!order_.format.is_aac) {
            return coded;
        }
        std::string decoded = order_.scratch + "/mix-decoded.wav";
        media_module().decode_damaged(coded, decoded);
        return decoded;
    }

    const MixOrder& order_;
};

}  // namespace

void require_mix_rate(const MixFormat& format, int sample_rate_hz) {
    const bool is_opus = (format.format & SF_FORMAT_SUBMASK) == SF_FORMAT_OPUS;
    if (is_opus && sample_rate_hz != kOpusRate_hz) {
        throw FileError(
            "an Opus mix needs tracks of 48000 Hz; name the mix .mp3, .m4a, .ogg, .flac or .wav");
    }
}

MadeMix make_mix(const MixOrder& order) {
    return MixMaker(order).go();
}

}  // namespace quorvane
