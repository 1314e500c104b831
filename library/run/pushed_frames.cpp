#include "library/run/pushed_frames.h"

#include <fcntl.h>
#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <system_error>

#include "Common/files/descriptor.h"

namespace quorvane {
namespace {

constexpr const char* kPartName = "part.wav";
constexpr std::size_t kBlockBytes = std::size_t{1} << 20;

void make_empty_file(const std::string& path) {
    const Descriptor file(path, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (!file.is_open()) {
        throw std::system_error(errno, std::generic_category());
    }
}

/** The depth of results in memory is that of their type. */
void require_no_depth(const Settings& settings) {
    for (const std::string& word : settings.tuning) {
        if (word.rfind("--bit", 0) == 0) {
            throw CallError(
                QUORVANE_BAD_OPTION,
                fmt::format("tuning option \"{}\": frames in memory keep their type", word));
        }
    }
}

/** Throws where one of the samples is not a number; before: frames before them. */
void require_numbers(const SampleForm& form,
                     const char* samples,
                     std::uint64_t frames,
                     std::uint64_t before) {
    const auto channels = static_cast<std::size_t>(form.channels);
    const std::size_t count = static_cast<std::size_t>(frames) * channels;
    const std::size_t bad = first_not_finite(form.type, samples, count);
    if (bad == count) {
        return;
    }
    throw CallError(QUORVANE_BAD_AUDIO,
                    fmt::format("the audio: the sample of frame {}, channel {}, both counted from "
                                "0, is infinite or not a number",
                                before + bad / channels, bad % channels));
}

void require_frames(std::uint64_t frames) {
    if (frames == 0) {
        throw CallError(QUORVANE_BAD_AUDIO, "the audio: it has no frames");
    }
}

}  // namespace

SampleForm form_of(const quorvane_audio& audio) {
    return {audio.type, audio.sample_rate_hz, audio.channels};
}

PushedFrames::PushedFrames(const Settings& settings, const SampleForm& form, std::uint64_t bytes)
    : form_(form), place_(std::make_unique<Workplace>(settings, bytes)) {
    writer_.emplace(*place_ / kInputName, form);
}

Recording PushedFrames::recording() const {
    return {*place_ / kInputName, kAudioName};
}

void PushedFrames::add_interleaved(const Settings& settings,
                                   const char* samples,
                                   std::uint64_t frames) {
    const auto bytes = static_cast<std::size_t>(frames * form_.frame_bytes());
    if (place_->place() == Place::kMemory && writer_->bytes() + bytes > settings.memory_bytes) {
        move_to_disk(settings);
    }
    writer_->add(samples, bytes);
}

void PushedFrames::add(const Settings& settings, const quorvane_audio& audio) {
    const Layout layout(audio);
    const std::uint64_t before = writer_->bytes() / form_.frame_bytes();
    with_errors_of(*place_, recording(), [&] {
        if (layout.is_interleaved() && audio.frames > 0) {
            const char* const samples = layout.at(0, 0);
            require_numbers(form_, samples, audio.frames, before);
            add_interleaved(settings, samples, audio.frames);
            return;
        }
        const std::uint64_t most = std::max<std::uint64_t>(kBlockBytes / form_.frame_bytes(), 1);
        for (std::uint64_t done = 0; done < audio.frames;) {
            const std::uint64_t here = std::min(most, audio.frames - done);
            block_.resize(static_cast<std::size_t>(here * form_.frame_bytes()));
            gather(layout, done, here, block_.data());
            require_numbers(form_, block_.data(), here, before + done);
            add_interleaved(settings, block_.data(), here);
            done += here;
        }
    });
}

/** What passes the bound of the memory goes on in the scratch folder. */
void PushedFrames::move_to_disk(const Settings& settings) {
    Settings on_disk = settings;
    on_disk.memory_bytes = 0;
    auto place = std::make_unique<Workplace>(on_disk, 1);
    const std::uint64_t bytes = writer_->bytes();
    writer_.reset();
    std::filesystem::copy_file(*place_ / kInputName, *place / kInputName);
    place_ = std::move(place);
    writer_.emplace(*place_ / kInputName, form_, bytes);
}

void PushedFrames::finish_writing() {
    require_frames(writer_->bytes());
    with_errors_of(*place_, recording(), [&] { writer_->finish(); });
    writer_.reset();
}

Results PushedFrames::level(const CallContext& call) {
    require_no_depth(call.settings);
    const GroupFile file = begin_leveling();
    Results results = level_recording(call, *place_, file.recording, file.output, file.part);
    end_leveling();
    return results;
}

GroupFile PushedFrames::begin_leveling() {
    finish_writing();
    GroupFile file{place_.get(), recording(), *place_ / kResultName, *place_ / kPartName};
    with_errors_of(*place_, recording(), [&] { make_empty_file(file.part); });
    return file;
}

void PushedFrames::end_leveling() {
    with_errors_of(*place_, recording(), [&] { reader_.emplace(*place_ / kPartName, form_.type); });
}

Results PushedFrames::limit(const CallContext& call) {
    finish_writing();
    const std::string result = *place_ / kResultName;
    Results results = limit_recording(call, *place_, recording(), result);
    with_errors_of(*place_, recording(), [&] { reader_.emplace(result, form_.type); });
    return results;
}

Results PushedFrames::measure(const CallContext& call) {
    finish_writing();
    return call.settings.measure == QUORVANE_MEASURE_LOUDNESS
               ? measure_loudness(call, *place_, recording())
               : level_recording(call, *place_, recording(), "", "");
}

std::uint64_t PushedFrames::read(const quorvane_buffer& to, std::uint64_t frames) {
    const Layout layout(to, form_.type, form_.channels);
    std::uint64_t done = 0;
    with_errors_of(*place_, recording(), [&] {
        const std::uint64_t most = std::max<std::uint64_t>(kBlockBytes / form_.frame_bytes(), 1);
        while (done < frames) {
            const bool direct = layout.is_interleaved();
            const std::uint64_t here = direct ? frames - done : std::min(most, frames - done);
            if (!direct) {
                block_.resize(static_cast<std::size_t>(here * form_.frame_bytes()));
            }
            const std::uint64_t got =
                reader_->read(direct ? layout.at(done, 0) : block_.data(), here);
            if (got == 0) {
                break;
            }
            if (!direct) {
                scatter(block_.data(), got, layout, done);
            }
            done += got;
        }
    });
    return done;
}

void PushedFrames::read_all(const quorvane_buffer& to) {
    const std::uint64_t frames = reader_->frames();
    if (read(to, frames) != frames) {
        throw CallError(QUORVANE_INTERNAL, "the audio: its result ends early");
    }
}

Results measure_in_place(const CallContext& call, const quorvane_audio& audio) {
    const SampleForm form = form_of(audio);
    const char* const samples = static_cast<const char*>(audio.samples);
    require_frames(audio.frames);
    require_numbers(form, samples, audio.frames, 0);
    SampleMemory frames(form, samples, audio.frames);
    return measure_loudness(call, frames);
}

}  // namespace quorvane
