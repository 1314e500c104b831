#include "cli/worker/sound_file_carrier.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <system_error>

#include "cli/audio/audio_formats.h"
#include "cli/audio/recode.h"
#include "cli/audio/scan.h"
#include "cli/audio/sound_file.h"
#include "cli/facts/file_error.h"
#include "cli/metadata/chunks.h"
#include "cli/metadata/data_size.h"
#include "cli/metadata/length_notes.h"
#include "cli/metadata/mpeg_frames.h"
#include "cli/metadata/ogg_pages.h"
#include "cli/metadata/tags.h"

/*
 * What a header says of the length is compared with what is there before libsndfile is asked, since
 * it takes the header's word: it reads no frame beyond it. A copy with a true header in the scratch
 * directory then stands for the input: a WAV file whose size was never filled in, an MP3 stream
 * without a count of its frames. The input itself is only ever read.
 *
 * A file that must be decoded is decoded once, to float samples that keep what lies above full
 * scale; the measurement, the engine and the comparison of lengths work on these.
 */

namespace cli {
namespace fs = std::filesystem;

namespace {

// Bounds of the last look at an output: what lies beyond them was not leveled but spoilt.
constexpr double kMostPeak = 1.0 + 1e-6;  // linear
constexpr double kMostLossyPeak = 4.0;    // linear: an encoder moves peaks by a few dB
constexpr std::int64_t kMostPadding =
    std::int64_t{16} * 1152;  // frames; encoders fill up their blocks

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

void SoundFileCarrier::note_damage(FileFacts& facts, const std::string& text) const {
    if (job_.options.strict) {
        throw FileError(text);
    }
    facts.notes.push_back(text);
}

// Before libsndfile believes it: sizes of 0 and counts that are missing cost speech.
void SoundFileCarrier::repair_header(FileFacts& facts) {
    source_ = job_.input;
    const DataSize data = compare_data_size(job_.input);
    const std::string note = length_note(data);
    if (data.kind == DataSize::Kind::Zero) {
        note_damage(facts, note + "; all that follows was taken");
        if (!only_looks()) {
            source_ = in_scratch("repaired");
            write_with_data_size(job_.input, source_);
        }
    } else if (data.kind == DataSize::Kind::Padded) {
        facts.notes.push_back(note);
    } else if (!note.empty()) {
        note_damage(facts, note);
    }
}

void SoundFileCarrier::read_info(FileFacts& facts) {
    SndfileHandle file = readable_input(source_);
    if ((file.format() & SF_FORMAT_TYPEMASK) == SF_FORMAT_MPEG && !only_looks()) {
        const auto stream = count_mpeg_frames(source_);
        const std::string note = stream ? length_note(*stream) : "";
        if (!note.empty()) {
            note_damage(facts, note);
        }
        if (stream && (!stream->told || *stream->told != stream->frames)) {
            source_ = in_scratch("counted");
            write_with_frame_count(job_.input, *stream, source_);
            file = readable_input(source_);
        }
    }
    if ((file.format() & SF_FORMAT_TYPEMASK) == SF_FORMAT_OGG && !ogg_ends_whole(source_)) {
        note_damage(facts, kOggCutShort);
    }
    info_.format = file.format();
    info_.channels = file.channels();
    info_.samplerate = file.samplerate();
    info_.frames = is_known_length(file.frames()) ? file.frames() : 0;
    facts.format = format_name(info_.format);
    facts.sample_rate_hz = info_.samplerate;
    facts.channels = info_.channels;
    facts.frames = info_.frames;
}

void SoundFileCarrier::decode_source(FileFacts& facts) {
    decoded_ = job_.scratch + "/decoded.wav";
    const Decoded decoded = decode_to_float(source_, decoded_);
    if (decoded.frames < info_.frames || !decoded.error.empty()) {
        std::string text = fmt::format("is cut short or damaged: {:.2f} s could be decoded",
                                       static_cast<double>(decoded.frames) / info_.samplerate);
        if (info_.frames > 0) {
            text +=
                fmt::format(" of {:.2f} s", static_cast<double>(info_.frames) / info_.samplerate);
        }
        note_damage(facts, decoded.error.empty() ? text : text + ": " + decoded.error);
    }
    info_.frames = decoded.frames;
    facts.frames = decoded.frames;
}

void SoundFileCarrier::probe(FileFacts& facts) {
    repair_header(facts);
    read_info(facts);
    const bool levels = !job_.output.empty();
    SF_INFO writable = info_;
    if (levels && !sf_format_check(&writable)) {
        throw FileError(
            fmt::format("its format ({}) can be read but not written back", facts.format));
    }
    if (levels && fs::path(job_.input).extension().empty()) {
        throw FileError("its name has no extension, which the engine needs");
    }
    if (!only_looks()) {
        if ((levels && is_lossy(info_.format)) || !last_frame_is_there(source_)) {
            decode_source(facts);
        }
    } else if (!is_lossy(info_.format) && info_.frames > 0 && !last_frame_is_there(source_)) {
        note_damage(facts, "is cut short or damaged");
    }
}

std::string SoundFileCarrier::readable(const std::string& file) {
    if (file != job_.input) {
        return file;
    }
    return decoded_.empty() ? source_ : decoded_;
}

std::vector<std::string> SoundFileCarrier::engine_inputs() {
    return {readable(job_.input)};
}

std::string SoundFileCarrier::encode(const std::vector<std::string>& leveled,
                                     const std::function<void(double)>& /*progress*/) {
    if (decoded_.empty()) {
        return leveled.front();
    }
    std::string encoded = in_scratch("encoded");
    encode_like(leveled.front(), source_, encoded);
    return encoded;
}

std::optional<std::uint64_t> SoundFileCarrier::room_in_place() {
    return decoded_.empty() ? room_for_chunks(source_) : std::nullopt;
}

bool SoundFileCarrier::complete(const std::string& leveled, std::uint64_t room) {
    return add_chunks(source_, leveled, room);
}

std::string SoundFileCarrier::add_metadata(const std::string& encoded,
                                           const LoudnessSource& after,
                                           const std::string& to) {
    // The stream with a count of its frames has no tags.
    const int container = info_.format & SF_FORMAT_TYPEMASK;
    const std::string& metadata = container == SF_FORMAT_MPEG ? job_.input : source_;
    // The pages of Ogg are rearranged in place, for which the output's folder is not the place.
    const std::string complete = container == SF_FORMAT_OGG ? in_scratch("complete") : to;
    const bool done = copy_chunks(metadata, encoded, complete, after) ||
                      copy_tags(metadata, encoded, complete, info_.format);
    return done ? complete : encoded;
}

void SoundFileCarrier::check(const std::string& complete, const Scan* known, FileFacts& facts) {
    const SndfileHandle after = open_to_read(complete);
    if (after.samplerate() != info_.samplerate || after.channels() != info_.channels ||
        (after.format() & SF_FORMAT_TYPEMASK) != (info_.format & SF_FORMAT_TYPEMASK) ||
        (!may_change_depth(job_.options.tuning) && after.format() != info_.format)) {
        throw FileError("the leveled file does not have the format of its input");
    }
    const Scan result =
        known != nullptr && known->frames == after.frames() ? *known : scan(complete);
    if (!result.finite) {
        throw FileError("the leveled file holds samples that are no numbers");
    }
    const bool lossy = is_lossy(info_.format);
    if (result.peak > (lossy ? kMostLossyPeak : kMostPeak)) {
        throw FileError(fmt::format("the leveled file has peaks of {:+.1f} dBFS",
                                    20 * std::log10(result.peak)));
    }
    const std::int64_t difference = result.frames - info_.frames;
    if (std::abs(difference) > (lossy ? kMostPadding : 0)) {
        throw FileError(fmt::format("the leveled file has {} frames, its input {}", result.frames,
                                    info_.frames));
    }
    if (difference != 0) {
        facts.notes.push_back(fmt::format("{} samples {} than its input after encoding",
                                          std::abs(difference),
                                          difference < 0 ? "shorter" : "longer"));
    }
}

}  // namespace cli
