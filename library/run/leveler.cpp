#include "library/run/leveler.h"

#include <fmt/format.h>

#include <utility>

#include "library/run/call_guard.h"
#include "library/run/file_output.h"
#include "library/run/together.h"

namespace quorvane {
namespace {

std::uint64_t bytes_of(const quorvane_audio& audio) {
    return audio.frames * form_of(audio).frame_bytes();
}

std::vector<Results> only(Results results) {
    std::vector<Results> all;
    all.push_back(std::move(results));
    return all;
}

std::vector<Results> none() {
    return std::vector<Results>(1);
}

void require_target(const Settings& settings) {
    if (settings.target.empty()) {
        throw CallError(QUORVANE_BAD_OPTION, "limiting needs a target: none is set");
    }
}

}  // namespace

void Leveler::keep(std::vector<Results> results) {
    results_ = std::move(results);
    selected_ = 0;
}

void Leveler::call(const std::function<std::vector<Results>(const CallContext&)>& work) {
    const CallGuard guard(settings_);
    keep(none());
    const CallContext call = context();
    call.advance(0);
    keep(work(call));
}

void Leveler::process(const quorvane_audio& audio,
                      const quorvane_buffer& result,
                      Results (PushedFrames::*work)(const CallContext&)) {
    call([&](const CallContext& call) {
        PushedFrames frames(settings_, form_of(audio), bytes_of(audio));
        frames.add(settings_, audio);
        Results results = (frames.*work)(call);
        frames.read_all(result);
        return only(std::move(results));
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
            return only(measure_in_place(call, audio));
        }
        PushedFrames frames(settings_, form_of(audio), bytes_of(audio));
        frames.add(settings_, audio);
        return only(frames.measure(call));
    });
}

void Leveler::level_file(const std::string& input, const std::string& output) {
    call([&](const CallContext& call) { return only(level_to_file(call, input, output)); });
}

void Leveler::measure_file(const std::string& input) {
    call([&](const CallContext& call) { return only(measure_of_file(call, input)); });
}

void Leveler::level_together(const std::vector<quorvane_audio>& tracks,
                             const std::vector<quorvane_buffer>& results) {
    call([&](const CallContext& call) { return quorvane::level_together(call, tracks, results); });
}

void Leveler::level_files_together(const std::vector<std::string>& inputs,
                                   const std::vector<std::string>& outputs,
                                   const std::string& mix) {
    call([&](const CallContext& call) {
        return quorvane::level_files_together(call, inputs, outputs, mix);
    });
}

void Leveler::begin(const SampleForm& form) {
    const CallGuard guard(settings_);
    pushed_.reset();
    keep(none());
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
        call([&](const CallContext& call) { return only(pushed_->level(call)); });
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
