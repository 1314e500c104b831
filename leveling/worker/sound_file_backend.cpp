#include "leveling/worker/sound_file_backend.h"

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

#include "Common/audio/sound_handle.h"
#include "leveling/audio/audio_formats.h"
#include "leveling/audio/dither.h"
#include "leveling/audio/scan.h"
#include "leveling/audio/sound_file.h"
#include "leveling/facts/file_error.h"
#include "leveling/metadata/adpcm_blocks.h"
#include "leveling/metadata/chunks.h"
#include "leveling/metadata/data_size.h"
#include "leveling/metadata/length_notes.h"
#include "leveling/metadata/mpeg_frames.h"
#include "leveling/metadata/mpeg_writer.h"
#include "leveling/metadata/ogg_pages.h"
#include "leveling/metadata/opus_head.h"
#include "leveling/metadata/tags.h"
#include "leveling/worker/media_module.h"

/*
 * What a header says of the length is compared with what is there before libsndfile is asked, since
 * it takes the header's word: it reads no frame beyond it. A copy with a true header in the scratch
 * directory then stands for the input: a WAV file whose size was never filled in, an MP3 stream
 * without a count of its frames. The input itself is only ever read.
 *
 * A file that must be decoded, or is to be quantised once only, is decoded to float samples that
 * keep what lies above full scale; the measurement, the engine, what renders for a destination and
 * the comparison of lengths work on these.
 */

namespace quorvane {
namespace fs = std::filesystem;

namespace {

constexpr int kOpusRateHz = 48000;

// Another bound of the last look at an output; the others are in scan.h.
constexpr std::int64_t kMostPadding =
    std::int64_t{16} * 1152;  // frames; encoders fill up their blocks

/** Throws std::system_error or FileError with the reason, without the file's name. */
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

/** Where the stream's holes lie in what a decoder makes of it. */
Loss loss_of(const MpegStream& stream) {
    const std::int64_t samples = stream.samples_per_frame;
    const std::int64_t left_out = stream.trim ? stream.trim->delay + kMpegDecoderDelay : 0;
    Loss loss;
    // Players drop the delay of encoder and decoder: places count from the first sample they play.
    std::int64_t at = -left_out;
    const auto lose = [&](std::uint64_t frames) {
        const std::int64_t end = at + static_cast<std::int64_t>(frames) * samples;
        const std::int64_t begin = std::max<std::int64_t>(at, 0);
        loss.add(begin, end - begin);
        at = end;
    };
    for (const MpegRun& run : stream.runs) {
        lose(run.lost);
        if (run.cut_off) {
            lose(run.frames);
        } else {
            at += static_cast<std::int64_t>(run.frames) * samples;
        }
    }
    loss.missing = static_cast<std::int64_t>(stream.missing) * samples;
    return loss;
}

/** What the header promises beyond the frames that are there. */
std::int64_t missing_frames(const DataSize& data, std::int64_t frames) {
    if (frames == 0 || data.there == 0) {
        return 0;
    }
    const auto there = static_cast<std::uint64_t>(frames);
    // Whole bytes a frame, or blocks of several frames.
    const std::uint64_t frame_bytes = data.there / there;
    const bool is_whole = frame_bytes > 0 && data.there % there < frame_bytes;
    const std::uint64_t promised =
        is_whole ? data.promised / frame_bytes
                 : static_cast<std::uint64_t>(static_cast<double>(there) /
                                              static_cast<double>(data.there) *
                                              static_cast<double>(data.promised));
    return promised > there ? static_cast<std::int64_t>(promised - there) : 0;
}

/** An options file may set the depth too; what it holds is the engine's to read. */
bool may_change_depth(const std::vector<std::string>& tuning) {
    return std::any_of(tuning.begin(), tuning.end(), [](const std::string& word) {
        return word.rfind("--bit-depth", 0) == 0 || word.rfind("--options-file", 0) == 0;
    });
}

}  // namespace

std::string SoundFileBackend::in_scratch(const char* name) const {
    return job_.scratch + "/" + name + fs::path(job_.input).extension().string();
}

void SoundFileBackend::note_damage(FileFacts& facts, const std::string& text) const {
    if (job_.options.strict) {
        throw FileError(text);
    }
    facts.notes.push_back(text);
}

// Before libsndfile believes it: sizes of 0 and counts that are missing cost speech.
void SoundFileBackend::repair_header(FileFacts& facts) {
    source_ = job_.input;
    data_ = compare_data_size(job_.input);
    const std::string note = length_note(data_);
    if (data_.kind == DataSize::Kind::Zero) {
        note_damage(facts, note + "; all that follows was taken");
        if (!only_looks()) {
            source_ = in_scratch("repaired");
            write_with_data_size(job_.input, source_);
        }
    } else if (data_.kind == DataSize::Kind::Padded) {
        facts.notes.push_back(note);
    } else if (data_.kind != DataSize::Kind::Short && !note.empty()) {
        note_damage(facts, note);
    }
}

void SoundFileBackend::repair_mpeg() {
    const auto stream = count_mpeg_frames(source_);
    if (!stream) {
        return;
    }
    loss_ = loss_of(*stream);
    // A right count, and a trim that covers the decoder's delay: it can be read as it is.
    const bool is_exact = stream->told && *stream->told == stream->frames && stream->trim &&
                          stream->trim->padding >= kMpegDecoderDelay;
    if (loss_.frames() > 0 || !is_exact) {
        source_ = in_scratch("counted");
        write_repaired_mpeg(job_.input, *stream, source_);
    }
}

void SoundFileBackend::repair_adpcm() {
    const auto stream = check_adpcm_blocks(source_);
    if (!stream || !stream->is_damaged()) {
        return;
    }
    loss_ = stream->loss();
    if (stream->is_complete()) {
        data_.kind = DataSize::Kind::Fits;  // bytes were removed in the middle
    }
    const std::string damaged = source_;
    source_ = in_scratch("silenced");
    write_repaired_adpcm(damaged, *stream, source_);
}

void SoundFileBackend::read_info(FileFacts& facts) {
    SndfileHandle file = readable_input(source_);
    const int container = file.format() & SF_FORMAT_TYPEMASK;
    if (container == SF_FORMAT_MPEG && !only_looks()) {
        repair_mpeg();
        file = readable_input(source_);
    }
    const int coding = file.format() & SF_FORMAT_SUBMASK;
    if ((coding == SF_FORMAT_IMA_ADPCM || coding == SF_FORMAT_MS_ADPCM) && !only_looks()) {
        repair_adpcm();
        file = readable_input(source_);
    }
    if (container == SF_FORMAT_OGG && !only_looks()) {
        const OggState state = check_ogg_pages(source_);
        is_damaged_ = state.is_damaged;
        if (!state.is_marked_as_end) {
            note_damage(facts, kOggCutShort);
        }
    }
    info_.format = file.format();
    info_.channels = file.channels();
    info_.samplerate = file.samplerate();
    // 0 stands for a length that only decoding shows.
    info_.frames = is_known_length(file.frames()) ? file.frames() : 0;
    facts.format = format_name(info_.format, ", ");
    facts.sample_rate_hz = info_.samplerate;
    facts.channels = info_.channels;
    facts.frames = info_.frames;
}

bool SoundFileBackend::must_be_decoded() {
    if (is_lossy(info_.format) && !job_.output.empty()) {
        return true;  // which shows damage, too
    }
    is_damaged_ = is_damaged_ || !last_frame_is_there(source_) ||
                  (is_packed_lossless(info_.format) && !reads_through(source_));
    return is_damaged_ || (!job_.output.empty() && is_quantized_once());
}

// libsndfile stops at the first damage; FFmpeg's decoders go on behind it.
Decoded SoundFileBackend::decode_damaged(const Decoded& readable) {
    const std::string to = job_.scratch + "/recovered.wav";
    try {
        Decoded recovered = media_module().decode_damaged(source_, to);
        // Compared in seconds, since two decoders may give two sample rates.
        if (recovered.frames * readable.sample_rate_hz >=
            readable.frames * recovered.sample_rate_hz) {
            decoded_ = to;
            return recovered;
        }
    } catch (const std::runtime_error&) {
        // What libsndfile could read is left; the caller reports the loss.
    }
    return readable;
}

void SoundFileBackend::decode_source(FileFacts& facts) {
    decoded_ = job_.scratch + "/decoded.wav";
    Decoded decoded = decode_to_float(source_, decoded_);
    if (is_damaged_ || decoded.frames < info_.frames || !decoded.error.empty()) {
        decoded = decode_damaged(decoded);
    }
    // The decoder has a rate of its own; the length is converted to it.
    if (decoded.sample_rate_hz != info_.samplerate) {
        info_.frames = info_.frames * decoded.sample_rate_hz / info_.samplerate;
        info_.samplerate = decoded.sample_rate_hz;
        facts.sample_rate_hz = info_.samplerate;
    }
    if (decoded.frames == 0 && info_.frames > 0) {
        throw FileError(decoded.error.empty() ? "nothing of it can be decoded" : decoded.error);
    }
    for (const Gap& gap : decoded.loss.gaps) {
        loss_.add(gap.at, gap.frames);
    }
    loss_.missing +=
        std::max<std::int64_t>(0, std::max(decoded.loss.missing, info_.frames - decoded.frames));
    if (info_.frames == 0 && !decoded.error.empty()) {
        note_damage(facts, fmt::format("is cut short or damaged: {:.2f} s could be decoded: {}",
                                       static_cast<double>(decoded.frames) / info_.samplerate,
                                       decoded.error));
    }
    info_.frames = decoded.frames;
    facts.frames = decoded.frames;
}

// The rounding of 16 bits in each of the engine's steps would add up. With a destination the audio
// is rendered after the engine; without one the engine's result is the output.
bool SoundFileBackend::is_quantized_once() const {
    return !job_.options.plain && !job_.options.destination.empty() &&
           dithered_bits(info_.format) != 0 && !may_change_depth(job_.options.tuning);
}

void SoundFileBackend::probe(FileFacts& facts) {
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
        if (must_be_decoded()) {
            decode_source(facts);
        }
    } else if (!is_lossy(info_.format) && info_.frames > 0 && !last_frame_is_there(source_)) {
        note_damage(facts, "is cut short or damaged");
    }
    if (data_.kind == DataSize::Kind::Short) {
        loss_.missing = std::max(loss_.missing, missing_frames(data_, info_.frames));
    }
    judge_loss(loss_, loss_limit(job_.options, levels), facts);
}

std::string SoundFileBackend::readable(const std::string& file) {
    if (file != job_.input) {
        return full_rate(file);
    }
    return decoded_.empty() ? source_ : decoded_;
}

// Opus codes speech at 8 to 16 kHz where bits are few, and each decoder brings it to 48 kHz by a
// filter of its own: peaks of FFmpeg's have been seen 0.5 dB above the reference decoder's.
std::string SoundFileBackend::read_otherwise(const std::string& result) {
    if ((info_.format & SF_FORMAT_SUBMASK) != SF_FORMAT_OPUS) {
        return "";
    }
    std::string to = job_.scratch + "/otherwise.wav";
    try {
        media_module().decode_damaged(result, to);
        return to;
    } catch (const std::runtime_error&) {
        return "";  // a system without the module
    }
}

std::string SoundFileBackend::full_rate(const std::string& result) const {
    const bool is_opus = (info_.format & SF_FORMAT_SUBMASK) == SF_FORMAT_OPUS;
    if (!is_opus || info_.samplerate == kOpusRateHz) {
        return result;
    }
    std::string copy = in_scratch("full-rate");
    write_opus_at_full_rate(result, copy);
    return copy;
}

std::vector<std::string> SoundFileBackend::engine_inputs() {
    return {readable(job_.input)};
}

std::string SoundFileBackend::encode(const std::vector<std::string>& leveled,
                                     const std::function<void(double)>& /*progress*/) {
    if (decoded_.empty()) {
        return leveled.front();
    }
    std::string encoded = in_scratch("encoded");
    encode_like(leveled.front(), source_, encoded,
                job_.options.plain ? Quantization::kRounded : Quantization::kDithered);
    if ((info_.format & SF_FORMAT_TYPEMASK) == SF_FORMAT_MPEG) {
        const std::string bare = encoded;
        encoded = in_scratch("measured");
        write_mpeg_with_length(bare, open_to_read(leveled.front()).frames(), encoded);
    }
    return encoded;
}

std::optional<std::uint64_t> SoundFileBackend::room_in_place() {
    return decoded_.empty() ? room_for_chunks(source_) : std::nullopt;
}

bool SoundFileBackend::complete(const std::string& leveled, std::uint64_t room) {
    return add_chunks(source_, leveled, room);
}

std::string SoundFileBackend::add_metadata(const std::string& encoded,
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

void SoundFileBackend::check(const std::string& complete, const Scan* known, FileFacts& facts) {
    const SndfileHandle after = open_to_read(complete);
    require_form_of(after, info_.samplerate, info_.channels);
    if ((after.format() & SF_FORMAT_TYPEMASK) != (info_.format & SF_FORMAT_TYPEMASK) ||
        (!may_change_depth(job_.options.tuning) && after.format() != info_.format)) {
        throw FileError("the leveled file does not have the format of its input");
    }
    const Scan result =
        known != nullptr && known->frames == after.frames() ? *known : scan(complete);
    require_numbers(result);
    const bool lossy = is_lossy(info_.format);
    if (result.peak > (lossy ? kMostLossyPeak : kMostPeak)) {
        throw FileError(fmt::format("the leveled file has peaks of {:+.1f} dBFS",
                                    20 * std::log10(result.peak)));
    }
    if (job_.options.align) {
        return;  // it begins and ends with its conversation
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

}  // namespace quorvane
