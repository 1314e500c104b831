#include "library/run/leveler.h"

#include <fmt/format.h>

#include <utility>

#include "library/run/call_guard.h"
#include "library/run/file_output.h"

namespace quorvane {
namespace {

std::uint64_t bytes_of(const quorvane_audio& audio) {
    return audio.frames * form_of(audio).frame_bytes();
}

void require_target(const Settings& settings) {
    if (settings.target.empty()) {
        throw CallError(QUORVANE_BAD_OPTION, "limiting needs a target: none is set");
    }
}

}  // namespace

void Leveler::call(const std::function<void(const CallContext&)>& work) {
    const CallGuard guard(settings_);
    results_ = Results();
    const CallContext call = context();
    call.advance(0);
    work(call);
}

void Leveler::process(const quorvane_audio& audio,
                      const quorvane_buffer& result,
                      Results (PushedFrames::*work)(const CallContext&)) {
    call([&](const CallContext& call) {
        PushedFrames frames(settings_, form_of(audio), bytes_of(audio));
        frames.add(settings_, audio);
        Results results = (frames.*work)(call);
        frames.read_all(result);
        results_ = std::move(results);
    });
}

void Leveler::level(const quorvane_audio& audio, const quorvane_buffer& result) {
    process(audio, result, &PushedFrames::level);
}

void Leveler::limit(const quorvane_audio& audio, const quorvane_buffer& result) {
    require_target(settings_);
    process(audio, result, &PushedFrames::limit);
}

void Leveler::measure(const quorvane_audio& audio) {
    call([&](const CallContext& call) {
        if (settings_.measure == QUORVANE_MEASURE_LOUDNESS && Layout(audio).is_interleaved()) {
            results_ = measure_in_place(call, audio);
            return;
        }
        PushedFrames frames(settings_, form_of(audio), bytes_of(audio));
        frames.add(settings_, audio);
        results_ = frames.measure(call);
    });
}

void Leveler::level_file(const std::string& input, const std::string& output) {
    call([&](const CallContext& call) { results_ = level_to_file(call, input, output); });
}

void Leveler::measure_file(const std::string& input) {
    call([&](const CallContext& call) { results_ = measure_of_file(call, input); });
}

void Leveler::begin(const SampleForm& form) {
    const CallGuard guard(settings_);
    pushed_.reset();
    results_ = Results();
    pushed_ = std::make_unique<PushedFrames>(settings_, form, 0);
}

void Leveler::write(const quorvane_audio& audio) {
    const CallGuard guard(settings_);
    if (!pushed_ || pushed_->is_finished()) {
        throw CallError(QUORVANE_WRONG_STATE, "frames were written before quorvane_begin");
    }
    const SampleForm& form = pushed_->form();
    if (audio.type != form.type || audio.sample_rate_hz != form.sample_rate_hz ||
        audio.channels != form.channels) {
        throw CallError(
            QUORVANE_BAD_ARGUMENT,
            fmt::format("the frames have type {}, {} Hz and {} channels, but quorvane_begin was "
                        "given type {}, {} Hz and {} channels",
                        audio.type, audio.sample_rate_hz, audio.channels, form.type,
                        form.sample_rate_hz, form.channels));
    }
    pushed_->add(settings_, audio);
}

void Leveler::finish() {
    if (!pushed_ || pushed_->is_finished()) {
        throw CallError(QUORVANE_WRONG_STATE, "quorvane_finish comes after quorvane_begin, once");
    }
    try {
        call([&](const CallContext& call) { results_ = pushed_->level(call); });
    } catch (...) {
        pushed_.reset();
        throw;
    }
}

std::uint64_t Leveler::read(const quorvane_buffer& to, std::uint64_t frames) {
    const CallGuard guard(settings_);
    if (!pushed_ || !pushed_->is_finished()) {
        throw CallError(QUORVANE_WRONG_STATE, "frames are read after quorvane_finish");
    }
    const std::uint64_t got = pushed_->read(to, frames);
    return got;
}

}  // namespace quorvane
