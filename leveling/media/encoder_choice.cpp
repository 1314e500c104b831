#include "leveling/media/encoder_choice.h"

#include <fmt/format.h>

#include <string>

namespace quorvane::media {
namespace {

/** The first codec that takes so many channels in their places; empty where there is none. */
std::string servant_of(SoundEncoder::Request request, const MediaFile& file, const Sound& sound) {
    for (const std::string& codec : servants_for(file, sound)) {
        try {
            request.choice = choose_encoder(file, sound, codec);
            const SoundEncoder encoder(request);
            return codec;
        } catch (const FileError&) {
            continue;
        }
    }
    return "";
}

}  // namespace

std::unique_ptr<SoundEncoder> make_encoder(const SoundEncoder::Request& request,
                                           const MediaFile& file,
                                           const Sound& sound) {
    try {
        return std::make_unique<SoundEncoder>(request);
    } catch (const FileError& error) {
        const std::string servant = request.channels > 2 ? servant_of(request, file, sound) : "";
        if (servant.empty()) {
            throw;
        }
        throw FileError(fmt::format("{}; --audio-codec {} would serve", error.what(), servant));
    }
}

}  // namespace quorvane::media
