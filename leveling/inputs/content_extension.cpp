#include "leveling/inputs/content_extension.h"

#include <fstream>
#include <string_view>

namespace quorvane {
namespace {

using namespace std::string_view_literals;

/** Bytes at the start of a format's files, and what comes later where several begin like it. */
struct Mark {
    std::size_t at;
    std::string_view bytes;
    std::string_view also;  // somewhere in the first bytes
    const char* extension;
};

constexpr Mark kMarks[] = {
    {0, "RIFF"sv, "AVI "sv, "avi"},
    {0, "RIFF"sv, ""sv, "wav"},
    {0, "RF64"sv, ""sv, "wav"},
    {0, "BW64"sv, ""sv, "wav"},
    {0, "riff\x2e\x91"sv, ""sv, "w64"},
    {8, "AIFC"sv, ""sv, "aifc"},
    {8, "AIFF"sv, ""sv, "aiff"},
    {0, "fLaC"sv, ""sv, "flac"},
    {0, "OggS"sv, "OpusHead"sv, "opus"},
    {0, "OggS"sv, ""sv, "ogg"},
    {0, "caff"sv, ""sv, "caf"},
    {0, ".snd"sv, ""sv, "au"},
    {0, "ID3"sv, ""sv, "mp3"},
    {4, "ftypM4A"sv, ""sv, "m4a"},
    {4, "ftypqt"sv, ""sv, "mov"},
    {4, "ftyp"sv, ""sv, "mp4"},
    {0, "\x1a\x45\xdf\xa3"sv, "webm"sv, "webm"},
    {0, "\x1a\x45\xdf\xa3"sv, ""sv, "mkv"},
    {0, "\x30\x26\xb2\x75\x8e\x66\xcf\x11"sv, ""sv, "wma"},
};

/** A frame of MPEG audio: eleven set bits, then a version and a layer (0: AAC in ADTS). */
const char* mpeg_extension(const std::string& start) {
    if (start.size() < 2 || start[0] != '\xff' || (start[1] & 0xe0) != 0xe0) {
        return "";
    }
    return (start[1] & 0x06) == 0 ? "aac" : "mp3";
}

}  // namespace

// Only what a pipe may bring: the name is made from it.
std::string extension_of_content(const std::string& path) {
    constexpr std::size_t kStart = 256;
    std::string start(kStart, '\0');
    std::ifstream in(path, std::ios::binary);
    in.read(&start[0], static_cast<std::streamsize>(start.size()));
    start.resize(static_cast<std::size_t>(in.gcount()));
    for (const Mark& mark : kMarks) {
        if (start.size() > mark.at && start.compare(mark.at, mark.bytes.size(), mark.bytes) == 0 &&
            start.find(mark.also) != std::string::npos) {
            return mark.extension;
        }
    }
    return mpeg_extension(start);
}

}  // namespace quorvane
