#include "cli/worker/sound_file_carrier.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <system_error>

#include "cli/audio/audio_formats.h"
#include "cli/audio/recode.h"
#include "cli/audio/sound_file.h"
#include "cli/facts/file_error.h"
#include "cli/metadata/chunks.h"
#include "cli/metadata/tags.h"

namespace cli {
namespace fs = std::filesystem;

namespace {

SndfileHandle readable_input(const std::string& path) {
    if (access(path.c_str(), R_OK) != 0) {
        throw std::system_error(errno, std::generic_category(), "cannot be read");
    }
    try {
        return open_to_read(path);
    } catch (const std::runtime_error& error) {
        throw FileError(fmt::format("cannot be read as audio: {}", error.what()));
    }
}

/** "WAV (Microsoft), Signed 16 bit PCM". */
std::string format_name(int format) {
    SF_FORMAT_INFO major{format & SF_FORMAT_TYPEMASK, nullptr, nullptr};
    SF_FORMAT_INFO minor{format & SF_FORMAT_SUBMASK, nullptr, nullptr};
    sf_command(nullptr, SFC_GET_FORMAT_INFO, &major, sizeof major);
    sf_command(nullptr, SFC_GET_FORMAT_INFO, &minor, sizeof minor);
    return fmt::format("{}, {}", major.name ? major.name : "unknown container",
                       minor.name ? minor.name : "unknown coding");
}

/** An options file may set the depth too; what it holds is the engine's to read. */
bool may_change_depth(const std::vector<std::string>& tuning) {
    return std::any_of(tuning.begin(), tuning.end(), [](const std::string& word) {
        return word.rfind("--bit-depth", 0) == 0 || word.rfind("--options-file", 0) == 0;
    });
}

}  // namespace

std::string SoundFileCarrier::in_scratch(const char* name) const {
    return job_.scratch + "/" + name + fs::path(job_.input).extension().string();
}

void SoundFileCarrier::probe(FileFacts& facts) {
    const SndfileHandle file = readable_input(job_.input);
    info_.format = file.format();
    info_.channels = file.channels();
    info_.samplerate = file.samplerate();
    info_.frames = file.frames();
    facts.format = format_name(info_.format);
    facts.sample_rate_hz = info_.samplerate;
    facts.channels = info_.channels;
    facts.frames = info_.frames;
    if (job_.output.empty()) {
        return;
    }
    SF_INFO writable = info_;
    if (!sf_format_check(&writable)) {
        throw FileError(
            fmt::format("its format ({}) can be read but not written back", facts.format));
    }
    if (fs::path(job_.input).extension().empty()) {
        throw FileError("its name has no extension, which the engine needs");
    }
}

std::vector<std::string> SoundFileCarrier::engine_inputs() {
    if (!is_lossy(info_.format)) {
        return {job_.input};
    }
    const std::string decoded = job_.scratch + "/decoded.wav";
    decode_to_float(job_.input, decoded);
    return {decoded};
}

std::string SoundFileCarrier::encode(const std::vector<std::string>& leveled,
                                     const std::function<void(double)>& /*progress*/) {
    if (!is_lossy(info_.format)) {
        return leveled.front();
    }
    const std::string encoded = in_scratch("encoded");
    encode_like(leveled.front(), job_.input, encoded);
    return encoded;
}

std::string SoundFileCarrier::add_metadata(const std::string& encoded, const Loudness* after) {
    const std::string complete = in_scratch("complete");
    const bool done = copy_chunks(job_.input, encoded, complete, after) ||
                      copy_tags(job_.input, encoded, complete, info_.format);
    return done ? complete : encoded;
}

void SoundFileCarrier::check(const std::string& complete, FileFacts& facts) {
    const SndfileHandle after = open_to_read(complete);
    if (after.samplerate() != info_.samplerate || after.channels() != info_.channels ||
        (after.format() & SF_FORMAT_TYPEMASK) != (info_.format & SF_FORMAT_TYPEMASK) ||
        (!may_change_depth(job_.options.tuning) && after.format() != info_.format)) {
        throw FileError("the leveled file does not have the format of its input");
    }
    if (after.frames() != info_.frames) {
        facts.notes.push_back(fmt::format("{} samples {} than its input after encoding",
                                          std::abs(after.frames() - info_.frames),
                                          after.frames() < info_.frames ? "shorter" : "longer"));
    }
}

}  // namespace cli
