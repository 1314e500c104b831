#include "leveling/worker/media_backend.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>

#include "leveling/audio/dither.h"
#include "leveling/audio/recode.h"
#include "leveling/media/remux.h"
#include "leveling/metadata/media_tags.h"

namespace quorvane {
namespace fs = std::filesystem;

namespace {

/** Frames that a codec's block may add or take at a sound's ends. */
constexpr std::int64_t kBlockFrames = 2048;
constexpr std::int64_t kClockNs = 2000000;  // two roundings of a container that counts in ms

constexpr std::int64_t kAacBlock = 1024;  // also the delay of the encoder

constexpr double kAllDone = 1;

/** A stream number below 0 chooses every audio stream. */
media::SoundChoice choice_of(const JobOptions& options) {
    return {options.audio_stream, options.audio_stream < 0, options.audio_codec};
}

}  // namespace

void MediaBackend::probe(FileFacts& facts) {
    file_ = media::probe_media(job_.input, choice_of(job_.options));
    describe(facts);
    // Only measured: nothing will be written back.
    if (job_.output.empty()) {
        return;
    }
    // A trial without sound: do container and encoder accept each other?
    std::vector<media::NewSound> sounds;
    for (const media::Sound& sound : file_.sounds) {
        sounds.push_back({sound, job_.options.audio_codec, "", nullptr});
    }
    media::try_media(file_, sounds);
}

void MediaBackend::describe(FileFacts& facts) const {
    const media::Sound& sound = file_.sounds.front();
    facts.sample_rate_hz = sound.sample_rate_hz;
    facts.channels = sound.channels;
    // From the container's length; decoding replaces it by a count.
    facts.frames = static_cast<std::int64_t>(file_.duration_s * sound.sample_rate_hz);
    facts.media = MediaFacts{file_.container, sound.codec_name, sound.bit_rate, {}};
    std::string streams;
    for (const media::Sound& chosen : file_.sounds) {
        facts.media->audio_streams.push_back(chosen.number);
        streams += (streams.empty() ? "" : ", ") + std::to_string(chosen.number);
    }
    facts.format = fmt::format("{}, {}", file_.container, sound.codec_name);
    if (file_.audio_streams > 1) {
        facts.format += fmt::format(", audio stream {} of {}", streams, file_.audio_streams);
    }
}

void MediaBackend::decode(FileFacts& facts, const std::function<void(double)>& progress) {
    const auto count = static_cast<double>(file_.sounds.size());
    for (const media::Sound& sound : file_.sounds) {
        const std::string to = fmt::format("{}/decoded{}.wav", job_.scratch, sound.number);
        // Each stream has the same share of the progress bar.
        const auto done = static_cast<double>(before_.size());
        before_.push_back(media::decode_sound(
            job_.input, sound, to, [&](double fraction) { progress((done + fraction) / count); }));
    }
    const media::DecodedSound& first = before_.front();
    facts.sample_rate_hz = first.sample_rate_hz;
    facts.channels = first.channels;
    facts.frames = first.frames;
    facts.media->bit_rate_bps = first.bit_rate;
    for (const media::DecodedSound& sound : before_) {
        judge(sound, facts);
    }
    facts.notes.insert(facts.notes.end(), notes_.begin(), notes_.end());
    notes_.clear();
    progress(kAllDone);
}

void MediaBackend::judge(const media::DecodedSound& sound, FileFacts& facts) const {
    const LossLimit limit = loss_limit(job_.options, !job_.output.empty());
    // Facts of this stream alone, as judge_loss() needs its rate and frames.
    FileFacts own;
    own.sample_rate_hz = sound.sample_rate_hz;
    own.frames = sound.frames;
    judge_loss(sound.loss, limit, own);
    // Damage whose cost in samples cannot be measured.
    if (own.notes.empty() && (sound.lost_packets > 0 || sound.read_errors > 0)) {
        own.notes.push_back("is damaged, and how much of its sound that cost is not known");
        if (limit == LossLimit::None) {
            throw FileError(own.notes.front());
        }
    }
    facts.notes.insert(facts.notes.end(), own.notes.begin(), own.notes.end());
    facts.findings.insert(facts.findings.end(), own.findings.begin(), own.findings.end());
}

std::string MediaBackend::readable(const std::string& file) {
    if (file == job_.input) {
        return before_.front().file;
    }
    // The result is decoded again, to be measured and checked.
    decode_result(file);
    return after_.front().file;
}

std::vector<std::string> MediaBackend::engine_inputs() {
    std::vector<std::string> files;
    for (const media::DecodedSound& sound : before_) {
        files.push_back(sound.file);
    }
    return files;
}

// A codec of integers is given integers: what its encoder would round has dither already.
std::string MediaBackend::quantized(std::size_t index, const std::string& leveled) const {
    const media::Sound& sound = file_.sounds[index];
    // It stays in floats without dithering, for a codec that was chosen or is lossy, or with many
    // bits.
    if (job_.options.plain || !job_.options.audio_codec.empty() || !sound.lossless ||
        sound.bits > kMostDitheredBits) {
        return leveled;
    }
    std::string to = fmt::format("{}/quantized{}.wav", job_.scratch, sound.number);
    write_dithered(leveled, before_[index].file, to, sound.bits);
    return to;
}

std::string MediaBackend::encode(const std::vector<std::string>& leveled,
                                 const std::function<void(double)>& progress) {
    std::vector<media::NewSound> sounds;
    leveled_.clear();
    for (std::size_t i = 0; i < leveled.size(); ++i) {
        // Empty: the engine handed this sound back.
        leveled_.push_back(!leveled[i].empty());
        if (leveled_[i]) {
            sounds.push_back(
                {file_.sounds[i], job_.options.audio_codec, quantized(i, leveled[i]), &before_[i]});
        } else {
            notes_.push_back(
                fmt::format("audio stream {} was copied unchanged", file_.sounds[i].number));
        }
    }
    std::string complete = job_.scratch + "/complete" + fs::path(job_.input).extension().string();
    for (const std::string& note : media::write_media(file_, sounds, complete, progress)) {
        notes_.push_back(note);
    }
    return complete;
}

std::string MediaBackend::add_metadata(const std::string& encoded,
                                       const LoudnessSource& /*after*/,
                                       const std::string& /*to*/) {
    copy_media_tags(job_.input, encoded, file_.muxer, gapless());
    return encoded;
}

/**
 * For audio-only MP4 with AAC, what players of such files look for: samples before the sound,
 * behind it, and in it, as hexadecimal numbers.
 */
std::string MediaBackend::gapless() const {
    // Audio-only MP4 without fragments, whose sound is new, begins at 0 and has no gaps.
    const bool whole = file_.muxer == "ipod" && file_.layout.fragments == 0 && leveled_.front();
    if (!whole || file_.sounds.front().codec_name != "aac" || !job_.options.audio_codec.empty() ||
        before_.front().timeline.marks().size() > 1 || before_.front().timeline.time_of(0) != 0) {
        return "";
    }
    const std::int64_t frames = before_.front().frames;
    // What fills up the last block.
    const std::int64_t over = (kAacBlock + frames) % kAacBlock;
    return fmt::format(
        " 00000000 {:08X} {:08X} {:016X} 00000000 00000000 00000000 00000000 00000000"
        " 00000000 00000000 00000000",
        kAacBlock, over ? kAacBlock - over : 0, frames);
}

void MediaBackend::decode_result(const std::string& complete) {
    after_.clear();
    for (const media::Sound& sound : file_.sounds) {
        const media::SoundChoice choice{sound.number, false, ""};
        const media::MediaFile result = media::probe_media(complete, choice);
        const std::string to = fmt::format("{}/result{}.wav", job_.scratch, sound.number);
        after_.push_back(media::decode_sound(complete, result.sounds.front(), to, [](double) {}));
    }
}

void MediaBackend::check_sound(std::size_t index) const {
    const media::DecodedSound& before = before_[index];
    const media::DecodedSound& after = after_[index];
    if (after.sample_rate_hz != before.sample_rate_hz || after.channels != before.channels) {
        throw FileError("the leveled sound does not have the format of its input");
    }
    // A block of the codec, and the container's rounding.
    const std::int64_t most = before.timeline.nanoseconds(kBlockFrames) + kClockNs;
    const std::int64_t start = after.timeline.time_of(0) - before.timeline.time_of(0);
    const std::int64_t end =
        after.timeline.time_of(after.frames) - before.timeline.time_of(before.frames);
    if (std::llabs(start) > most || std::llabs(end) > most) {
        throw FileError(fmt::format(
            "the leveled sound would begin {:+.1f} ms and end {:+.1f} ms from where it should",
            static_cast<double>(start) / 1e6, static_cast<double>(end) / 1e6));
    }
}

// Whether the result is what it should be is asked of its own packets, decoded once more.
void MediaBackend::check(const std::string& complete, const Scan* /*known*/, FileFacts& facts) {
    if (after_.empty()) {
        decode_result(complete);
    }
    media::probe_media(complete, {});  // readable still, now that its tags are in
    for (std::size_t i = 0; i < after_.size(); ++i) {
        if (leveled_[i]) {
            check_sound(i);
        }
    }
    facts.notes.insert(facts.notes.end(), notes_.begin(), notes_.end());
}

}  // namespace quorvane
