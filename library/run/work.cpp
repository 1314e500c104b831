#include "library/run/work.h"

#include <fmt/format.h>

#include <algorithm>
#include <boost/algorithm/string/erase.hpp>
#include <boost/algorithm/string/replace.hpp>
#include <cerrno>
#include <cstdio>
#include <new>
#include <system_error>
#include <utility>

#include "leveling/audio/dither.h"
#include "leveling/audio/measure.h"
#include "leveling/audio/recode.h"
#include "leveling/audio/sound_file.h"
#include "leveling/facts/destinations.h"
#include "leveling/facts/file_error.h"
#include "leveling/publish/publish.h"
#include "leveling/worker/work_on.h"
#include "library/run/call_guard.h"

namespace quorvane {
namespace {

Job job_for(const Settings& settings, const Workplace& place, const Recording& recording) {
    Job job;
    job.input = recording.path;
    job.scratch = place.folder();
    job.spare_processor = settings.second_thread;
    job.options.tuning = settings.tuning;
    job.options.plain = settings.plain;
    job.options.strict = settings.strict;
    job.options.salvage = settings.salvage;
    job.options.destination = settings.target;
    const bool by_default = settings.measure == QUORVANE_MEASURE_DEFAULT;
    job.options.measure =
        by_default ? !settings.plain : settings.measure != QUORVANE_MEASURE_NOTHING;
    return job;
}

/** The target is for the mix. */
Settings settings_of(const Settings& settings, const GroupFile& file) {
    Settings own = settings;
    own.target = file.is_mix ? settings.target : "";
    return own;
}

Job job_for(const Settings& settings, const Workplace& place, const GroupFile& file) {
    Job job = job_for(settings_of(settings, file), place, file.recording);
    job.output = file.output;
    job.part = file.part;
    job.mix = file.is_mix;
    job.options.group = "together";  // the command keeps a key of the tracks here, for its records
    return job;
}

/** Notes are for people, who see the log. */
void log_notes(const Settings& settings, const FileFacts& facts) {
    for (const std::string& note : facts.notes) {
        if (settings.log != nullptr) {
            settings.log(settings.context, QUORVANE_LOG_WARNING, note.c_str());
        }
    }
}

quorvane_outcome outcome_of(const FileFacts& facts) {
    switch (facts.outcome) {
        case Outcome::Leveled:
            return QUORVANE_LEVELED;
        case Outcome::Copied:
            return QUORVANE_UNCHANGED;
        default:
            return QUORVANE_MEASURED;
    }
}

/** Temporary paths mean nothing to callers. */
void clear_paths(const Workplace& place, const Recording& recording, FileFacts& facts) {
    const bool is_file = recording.name != kAudioName;
    facts.input = is_file ? recording.name : "";
    facts.output = is_file ? facts.output : "";
    facts.cause = place.without_paths(facts.cause);
    for (std::string& note : facts.notes) {
        note = place.without_paths(note);
    }
}

bool has(const std::string& text, const char* words) {
    return text.find(words) != std::string::npos;
}

/** What decoders and the engine say of a file that they refuse, in a kind that a program tests. */
quorvane_code code_of_refusal(const std::string& cause) {
    const bool unsupported = has(cause, "can be leveled") || has(cause, "not written back") ||
                             has(cause, "does not read it");
    return unsupported ? QUORVANE_UNSUPPORTED : QUORVANE_FAILED;
}

std::string sentence(const std::string& name, const std::string& cause) {
    return fmt::format("{}: {}", name, cause);
}

/** Calls work; what it throws becomes a CallError with the sentence. */
void with_errors_as(const std::function<std::string(const std::exception&)>& sentence_for,
                    const std::function<void()>& work) {
    try {
        work();
    } catch (const CallError&) {
        throw;
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const std::system_error& error) {
        throw CallError(QUORVANE_IO_ERROR, sentence_for(error));
    } catch (const FileError& error) {
        const quorvane_code code = code_of_refusal(error.what());
        throw CallError(code == QUORVANE_FAILED ? QUORVANE_BAD_AUDIO : code, sentence_for(error));
    } catch (const std::exception& error) {
        throw CallError(code_of_refusal(error.what()), sentence_for(error));
    }
}

/** Throws the cause as a CallError that names the file as its caller does. */
void throw_as_call_error(const Workplace& place,
                         const std::vector<GroupFile>& files,
                         const TrackError& error) {
    const auto file = std::find_if(files.begin(), files.end(), [&](const GroupFile& one) {
        return error.input() == (one.is_mix ? one.output : one.recording.path);
    });
    const auto index = static_cast<std::size_t>(file - files.begin());
    const GroupFile& named = file != files.end() ? *file : files.front();
    const auto work = [&] {
        try {
            with_errors_of(*named.place, named.recording, [&] { error.rethrow_cause(); });
        } catch (const CallError& found) {
            throw CallError(found.code(), place.without_paths(found.what()));
        }
    };
    named.place == &place ? work() : with_errors_of_track(index, files.size(), work);
}

/** What a sound is, and its loudness. */
FileFacts facts_and_loudness(const CallContext& call, const OpenSound& open) {
    FileFacts facts;
    const SndfileHandle file = open();
    facts.outcome = Outcome::Analyzed;
    facts.sample_rate_hz = file.samplerate();
    facts.channels = file.channels();
    facts.frames = file.frames();
    facts.before = call.settings.second_thread
                       ? measure_meanwhile(open, CallerThread::kWaiting).get().loudness
                       : measure(open, call.progress()).loudness;
    return facts;
}

}  // namespace

void CallContext::advance(double fraction) const {
    const bool refused = settings.progress != nullptr &&
                         settings.progress(settings.context, std::clamp(fraction, 0.0, 1.0)) != 0;
    if (refused || cancelled.load(std::memory_order_relaxed) != 0) {
        throw CancelledCall{};
    }
}

void with_errors_of_track(std::size_t index, std::size_t count, const std::function<void()>& work) {
    try {
        work();
    } catch (const CallError& error) {
        throw CallError(error.code(),
                        fmt::format("track {} of {}: {}", index + 1, count, error.what()));
    }
}

void with_errors_of(const Workplace& place,
                    const Recording& recording,
                    const std::function<void()>& work) {
    const auto sentence_for = [&](const std::exception& error) {
        const std::string cause =
            boost::algorithm::erase_all_copy(std::string(cause_of(error)), recording.path + ": ");
        return sentence(recording.name, place.without_paths(cause));
    };
    with_errors_as(sentence_for, work);
}

Results level_recording(const CallContext& call,
                        const Workplace& place,
                        const Recording& recording,
                        const std::string& output,
                        const std::string& part) {
    Job job = job_for(call.settings, place, recording);
    job.output = output;
    job.part = part;
    if (part.empty()) {
        job.options.measure = true;
    }
    Results results;
    with_errors_of(place, recording, [&] {
        FileFacts facts = work_on_here(job, call.progress()).facts;
        clear_paths(place, recording, facts);
        log_notes(call.settings, facts);
        const quorvane_outcome outcome = outcome_of(facts);
        results = results_of(std::move(facts), outcome, call.settings);
    });
    return results;
}

std::vector<Results> level_group(const CallContext& call,
                                 const Workplace& place,
                                 const std::vector<GroupFile>& files) {
    std::vector<Job> jobs;
    jobs.reserve(files.size());
    for (const GroupFile& file : files) {
        jobs.push_back(job_for(call.settings, place, file));
    }
    std::vector<WorkResult> made;
    with_errors_of(place, files.front().recording, [&] {
        try {
            made = work_on_group_here(jobs, call.progress());
        } catch (const TrackError& error) {
            throw_as_call_error(place, files, error);
        }
    });
    call.advance(1);
    std::vector<Results> results;
    for (std::size_t i = 0; i < files.size(); ++i) {
        const GroupFile& file = files[i];
        FileFacts& facts = made[i].facts;
        clear_paths(*file.place, file.recording, facts);
        for (std::string& note : facts.notes) {
            if (file.place != &place) {
                boost::algorithm::replace_all(note, kInputName, "the first track");
            }
        }
        log_notes(call.settings, facts);
        const quorvane_outcome outcome = outcome_of(facts);
        results.push_back(results_of(std::move(facts), outcome, settings_of(call.settings, file)));
    }
    return results;
}

Results measure_loudness(const CallContext& call,
                         const Workplace& place,
                         const Recording& recording) {
    FileFacts facts;
    with_errors_of(place, recording, [&] {
        facts = facts_and_loudness(call, [&] { return open_to_read(recording.path); });
        clear_paths(place, recording, facts);
    });
    call.advance(1);
    return results_of(std::move(facts), QUORVANE_MEASURED, call.settings);
}

Results measure_loudness(const CallContext& call, SampleMemory& frames) {
    FileFacts facts;
    with_errors_as(
        [](const std::exception& error) { return sentence(kAudioName, cause_of(error)); },
        [&] { facts = facts_and_loudness(call, [&] { return frames.open(); }); });
    call.advance(1);
    return results_of(std::move(facts), QUORVANE_MEASURED, call.settings);
}

Results limit_recording(const CallContext& call,
                        const Workplace& place,
                        const Recording& recording,
                        const std::string& result) {
    FileFacts facts;
    with_errors_of(place, recording, [&] {
        const SndfileHandle file = open_to_read(recording.path);
        const bool is_dithered = dithered_bits(file.format()) != 0;
        std::string from = recording.path;
        if (is_dithered) {
            from = place / "float.wav";
            decode_to_float(recording.path, from);
        }
        const std::string rendered = place / "rendered.wav";
        const auto encode = [&](const std::string& audio) {
            if (is_dithered) {
                encode_like(audio, recording.path, result, Quantization::kDithered);
            }
            return Reading{is_dithered ? result : audio, ""};
        };
        facts.sample_rate_hz = file.samplerate();
        facts.channels = file.channels();
        facts.frames = file.frames();
        facts.before =
            measure(recording.path, [&](double done) { call.advance(0.1 * done); }).loudness;
        const Published published =
            publish(*find_destination(call.settings.target), from, rendered, encode,
                    [&](double done) { call.advance(0.1 + 0.9 * done); });
        if (published.path != result && rename(published.path.c_str(), result.c_str()) != 0) {
            throw std::system_error(errno, std::generic_category());
        }
        facts.outcome = Outcome::Leveled;
        facts.after = published.after;
        facts.publishing = published.facts;
        clear_paths(place, recording, facts);
    });
    call.advance(1);
    return results_of(std::move(facts), QUORVANE_LIMITED, call.settings);
}

}  // namespace quorvane
