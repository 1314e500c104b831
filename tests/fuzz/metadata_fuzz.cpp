/*
 * Metadata bytes into the copiers: the fuzzed file is the one whose chunks and tags are carried to
 * a small leveled file of the container that its first byte chooses.
 */
#include <sndfile.h>

#include <array>
#include <cstdint>
#include <exception>
#include <fstream>
#include <iterator>
#include <string>

#include "leveling/metadata/chunks.h"
#include "leveling/metadata/tags.h"
#include "tests/fuzz/fuzz_support.h"

namespace {

struct Kind {
    const char* extension;
    int format;
};

constexpr std::array<Kind, 9> kKinds = {{{".wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16},
                                         {".aiff", SF_FORMAT_AIFF | SF_FORMAT_PCM_16},
                                         {".rf64", SF_FORMAT_RF64 | SF_FORMAT_PCM_16},
                                         {".w64", SF_FORMAT_W64 | SF_FORMAT_PCM_16},
                                         {".caf", SF_FORMAT_CAF | SF_FORMAT_PCM_16},
                                         {".flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_16},
                                         {".ogg", SF_FORMAT_OGG | SF_FORMAT_VORBIS},
                                         {".opus", SF_FORMAT_OGG | SF_FORMAT_OPUS},
                                         {".mp3", SF_FORMAT_MPEG | SF_FORMAT_MPEG_LAYER_III}}};

void write_sound(const std::string& path, int format) {
    SF_INFO info{};
    info.channels = 1;
    info.samplerate = 48000;
    info.format = format;
    SNDFILE* file = sf_open(path.c_str(), SFM_WRITE, &info);
    const std::array<double, 480> samples{};
    sf_write_double(file, samples.data(), static_cast<sf_count_t>(samples.size()));
    sf_close(file);
}

/** Writes behind as much room as the fuzzed file requests, unless that is too much memory. */
void add_in_place(const std::string& from, const std::string& audio, std::uint64_t room) {
    constexpr std::uint64_t kMostRoom = 1 << 20;
    if (room > kMostRoom) {
        return;
    }
    std::ifstream file(audio, std::ios::binary);
    const std::string bytes(std::istreambuf_iterator<char>(file), {});
    const std::string placed = audio + ".placed";
    std::ofstream(placed, std::ios::binary) << std::string(room, '\0') << bytes;
    quorvane::add_chunks(from, placed, room);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const fuzz::MemoryBound bound(size);
    if (size < 1) {
        return 0;
    }
    const Kind& kind = kKinds[data[0] % kKinds.size()];
    const std::string from = fuzz::file(std::string("from") + kind.extension, data + 1, size - 1);
    const std::string audio = fuzz::folder() + "audio" + kind.extension;
    write_sound(audio, kind.format);
    try {
        const std::string to = fuzz::folder() + "to" + kind.extension;
        if (!quorvane::copy_chunks(from, audio, to, [] { return nullptr; })) {
            quorvane::copy_tags(from, audio, to, kind.format);
        }
        if (const auto room = quorvane::room_for_chunks(from)) {
            add_in_place(from, audio, *room);
        }
    } catch (const std::exception&) {  // NOLINT(bugprone-empty-catch): a clean refusal
    }
    return 0;
}
