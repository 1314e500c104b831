#include "leveling/audio/audio_formats.h"

#include <sndfile.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <map>

#include "Common/audio/sample_codec.h"

namespace quorvane {
namespace {

bool is_alac(int format) {
    const int encoding = format & SF_FORMAT_SUBMASK;
    return encoding >= SF_FORMAT_ALAC_16 && encoding <= SF_FORMAT_ALAC_32;
}

/** A container and a coding that it always holds, to ask the library whether it writes them. */
const std::map<std::string, int>& formats_by_extension() {
    static const std::map<std::string, int> formats = {
        {"wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16},
        {"wave", SF_FORMAT_WAV | SF_FORMAT_PCM_16},
        {"aif", SF_FORMAT_AIFF | SF_FORMAT_PCM_16},
        {"aiff", SF_FORMAT_AIFF | SF_FORMAT_PCM_16},
        {"aifc", SF_FORMAT_AIFF | SF_FORMAT_PCM_16},
        {"flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_16},
        {"w64", SF_FORMAT_W64 | SF_FORMAT_PCM_16},
        {"rf64", SF_FORMAT_RF64 | SF_FORMAT_PCM_16},
        {"caf", SF_FORMAT_CAF | SF_FORMAT_PCM_16},
        {"au", SF_FORMAT_AU | SF_FORMAT_PCM_16},
        {"ogg", SF_FORMAT_OGG | SF_FORMAT_VORBIS},
        {"oga", SF_FORMAT_OGG | SF_FORMAT_VORBIS},
        {"opus", SF_FORMAT_OGG | SF_FORMAT_OPUS},
        {"mp3", SF_FORMAT_MPEG | SF_FORMAT_MPEG_LAYER_III},
    };
    return formats;
}

}  // namespace

const std::set<std::string>& writable_extensions() {
    static const std::set<std::string> extensions = [] {
        std::set<std::string> writable;
        for (const auto& [extension, format] : formats_by_extension()) {
            // The library may have been built without MP3 or without any of the Ogg codecs.
            SF_INFO info{};
            info.channels = 1;
            info.samplerate = 48000;
            info.format = format;
            if (sf_format_check(&info)) {
                writable.insert(extension);
            }
        }
        return writable;
    }();
    return extensions;
}

std::string lower_extension(const std::string& path) {
    std::string extension = std::filesystem::path(path).extension().string();
    if (!extension.empty()) {
        extension.erase(0, 1);
    }
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return extension;
}

bool same_container(const std::string& extension, const std::string& other) {
    const auto& formats = formats_by_extension();
    const auto one = formats.find(extension);
    const auto two = formats.find(other);
    // What libsndfile does not know is a media file, whose extension is all that is known of it.
    if (one == formats.end() || two == formats.end()) {
        return extension == other;
    }
    return (one->second & SF_FORMAT_TYPEMASK) == (two->second & SF_FORMAT_TYPEMASK);
}

bool is_packed_lossless(int format) {
    return (format & SF_FORMAT_TYPEMASK) == SF_FORMAT_FLAC || is_alac(format);
}

bool is_lossy(int format) {
    return linear_sample_bytes(format) == 0 && !is_alac(format);
}

}  // namespace quorvane
