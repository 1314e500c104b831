#include "leveling/worker/stages.h"

#include <fmt/format.h>
#include <unistd.h>

#include <exception>
#include <filesystem>
#include <future>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "Common/stream/helper_thread.h"
#include "Common/units.h"
#include "leveling/archive/content_hash.h"
#include "leveling/archive/record.h"
#include "leveling/audio/measure.h"
#include "leveling/channels/channel_leveling.h"
#include "leveling/engine/engine_run.h"
#include "leveling/engine/output_gate.h"
#include "leveling/facts/destinations.h"
#include "leveling/facts/file_error.h"
#include "leveling/findings/findings.h"
#include "leveling/findings/profiler.h"
#include "leveling/metadata/byte_file.h"
#include "leveling/preparation/preparation.h"
#include "leveling/publish/publish.h"
#include "leveling/storage/staged_output.h"
#include "leveling/worker/audio_backend.h"
#include "leveling/worker/surround.h"

/*
 * The work on one file is a list of stages, kStages, each a function that takes what the ones
 * before it left in Work. What depends on the kind of file is asked of its AudioBackend; a stage
 * that has nothing to do for a job is left out by its condition. A new stage is a function and a
 * line in the list.
 */

namespace quorvane {
namespace fs = std::filesystem;

namespace {

void probe(Work& work) {
    work.facts.outcome = Outcome::Analyzed;
    work.backend = make_backend(work.job);
    work.backend->probe(work.facts);
    if (!work.job.output.empty()) {
        require_channels(work.facts, work.job.options);
    }
}

InputReading read_input(const std::string& file, const std::function<void(double)>& progress) {
    Profiler first;
    Profiler second;
    InputReading reading;
    reading.loudness = measure(file, progress, {&first, &second}).loudness;
    reading.profile = std::move(first.profile());
    reading.profile.append(second.profile());
    return reading;
}

void take_measurement(Work& work, const InputReading& reading) {
    const Loudness& before = reading.loudness;
    work.facts.before = before;
    // The profile is of two channels: of more it would describe the ambience.
    if (work.facts.channels <= kMostChannels) {
        add_findings(reading.profile, work.facts);
    }
    if (before.sample_peak_dbfs > 0 && !work.job.output.empty()) {
        work.facts.notes.push_back(
            fmt::format("has peaks of {:+.1f} dBFS; what lies above 0 dBFS is cut off before "
                        "leveling",
                        before.sample_peak_dbfs));
    }
}

/** Waits for a measurement under way and throws what went wrong with it. */
void wait_for_measurement(Work& work) {
    if (work.before.valid()) {
        const InputReading reading = work.before.get();
        take_measurement(work, reading);
        work.input_hash = reading.hash;
    }
}

/** Beside the engine's first steps, which need one processor alone, where there are two. */
void measure_before(Work& work) {
    const std::string file = work.backend->readable(work.job.input);
    if (work.job.spare_processor && !work.job.output.empty()) {
        work.before = std::async(std::launch::async, [file, input = work.job.input] {
            InputReading reading = read_input(file, [](double) {});
            reading.hash = content_hash(input);
            return reading;
        });
    } else {
        take_measurement(work, read_input(file, work.progress));
    }
}

void decode(Work& work) {
    work.backend->decode(work.facts, work.progress);
}

void prepare(Work& work) {
    work.engine_inputs = work.backend->engine_inputs();
}

/** The hidden file at the output's place, empty. */
void open_part(Work& work) {
    work.part = std::make_unique<OutputPart>(work.job.output, work.job.part);
    work.part->clear();
}

/**
 * For the engine's last step: the descriptor of the output's place behind so much room. What is
 * wrong with the place, stage() will meet again and tell.
 */
int open_place(Work& work, std::uint64_t room) {
    try {
        open_part(work);
        const int file = work.part->descriptor();
        return lseek(file, static_cast<off_t>(room), SEEK_SET) == -1 ? -1 : file;
    } catch (const std::exception&) {
        return -1;
    }
}

/** Calls write, whose error may name the hidden file, which means nothing to users. */
template <class Write>
void tell_of_output(Work& work, const Write& write) {
    try {
        write();
    } catch (const std::system_error& error) {
        const bool hidden = std::string(error.what()).rfind(work.job.part, 0) == 0;
        throw hidden ? std::system_error(error.code(), work.job.output) : error;
    }
}

/** Makes the output of leveled audio at its place, or else takes it away from there. */
void complete(Work& work, std::uint64_t room, const std::string& leveled) {
    const std::string& path = work.part->path();
    if (work.backend->complete(path, room)) {
        work.part->start_sync();  // the readings of it come first
    } else {
        copy_from(path, room, leveled);
        work.part.reset();
    }
}

/** The engine's result as it is. */
PreparedResult level_plainly(const PreparedRun& run,
                             const std::string& place_name,
                             const std::function<void(double)>& progress) {
    EngineRun engine{run.recording, run.output,     run.scratch,
                     run.tuning,    run.open_place, place_name};
    const EngineResult result = run_engine(engine, progress);
    return {result.leveled,  result.in_place, result.cause,
            result.leveling, std::nullopt,    result.note};
}

/** Levels one of the file's sounds; the facts describe the first. */
void level_sound(Work& work, std::size_t index) {
    const std::string& input = work.engine_inputs[index];
    const std::string name = index == 0 ? "/leveled" : fmt::format("/leveled{}", index + 1);
    PreparedRun run{input, work.job.scratch + name + fs::path(input).extension().string(), 0,
                    work.job.scratch, work.job.options.tuning};
    const bool is_output = work.engine_inputs.size() == 1 && work.job.options.destination.empty();
    const auto room = is_output ? work.backend->room_in_place() : std::nullopt;
    std::optional<ChannelUse> use;
    const bool apart = takes_channels_apart(work, input, use);
    if (room && !apart) {
        run.open_place = [&] { return open_place(work, *room); };
    }
    const auto count = static_cast<double>(work.engine_inputs.size());
    const auto progress = [&](double done) {
        work.progress((static_cast<double>(index) + done) / count);
    };
    const PreparedResult result =
        work.job.options.plain ? level_plainly(run, work.job.output, progress)
        : apart                ? level_channels(run, layout_of(work, input), use, progress)
                               : level_prepared(run, progress);
    if (result.in_place) {
        tell_of_output(work, [&] { complete(work, *room, run.output); });
    }
    const std::string& leveled = result.in_place && work.part ? work.part->path() : run.output;
    if (result.leveled && work.job.options.plain) {
        require_sound_output(input, leveled);
    }
    work.leveled.push_back(result.leveled ? leveled : "");
    work.changed = work.changed || result.leveled;
    if (!result.note.empty()) {
        work.facts.notes.push_back(work.engine_inputs.size() == 1
                                       ? result.note
                                       : fmt::format("sound {}: {}", index + 1, result.note));
    }
    if (index == 0) {
        work.facts.leveling = result.leveling;
        work.facts.preparation = result.preparation;
        work.facts.cause = result.cause;
    }
}

void level(Work& work) {
    using stream::HelperThread;
    HelperThread::use(work.job.spare_processor ? HelperThread::Help::kHelped
                                               : HelperThread::Help::kAlone);
    work.changed = false;
    try {
        for (std::size_t i = 0; i < work.engine_inputs.size(); ++i) {
            level_sound(work, i);
        }
    } catch (...) {
        wait_for_measurement(work);  // a file that cannot be read through is the cause to tell
        throw;
    }
    wait_for_measurement(work);
    work.facts.outcome = work.changed ? Outcome::Leveled : Outcome::Copied;
    if (!work.changed) {
        work.audio = work.job.input;
        work.facts.after = work.facts.before;
    }
}

void encode(Work& work) {
    work.audio = work.backend->encode(work.leveled, work.progress);
}

void take_measurement_after(Work& work, const Measurement& after) {
    work.facts.after = after.loudness;
    work.heard = after.scan;
}

void measure_after(Work& work) {
    const std::string file = work.backend->readable(work.audio);
    work.heard_in = file;
    measure_dialogue(work, file);
    if (work.job.spare_processor) {
        work.after = measure_meanwhile(file, CallerThread::kWaiting);
    } else {
        take_measurement_after(work, measure(file, work.progress));
    }
}

/** The loudness of the new audio, null where it is not to be measured. */
const Loudness* loudness_after(Work& work) {
    if (work.after.valid()) {
        take_measurement_after(work, work.after.get());
    }
    return work.facts.after ? &*work.facts.after : nullptr;
}

/**
 * Matches the leveled audio to its delivery target. The file's first sound is encoded and measured
 * as often as that takes; others, which the facts do not describe, before they are encoded.
 */
void publish_audio(Work& work) {
    const Destination destination = *find_destination(work.job.options.destination);
    std::vector<std::string> sounds = work.leveled;
    const auto rendered = [&](std::size_t index) {
        return fmt::format("{}/published{}{}", work.job.scratch, index + 1,
                           fs::path(sounds[index]).extension().string());
    };
    for (std::size_t i = 1; i < sounds.size(); ++i) {
        if (!sounds[i].empty()) {
            const auto as_it_is = [](const std::string& audio) { return Reading{audio, ""}; };
            sounds[i] = publish(destination, sounds[i], rendered(i), as_it_is, [](double) {}).path;
        }
    }
    if (sounds[0].empty()) {
        work.audio = work.backend->encode(sounds, work.progress);
        work.facts.after = measure(work.backend->readable(work.audio), [](double) {}).loudness;
        return;
    }
    std::string last;
    const auto encode_and_read = [&](const std::string& audio) {
        sounds[0] = audio;
        work.audio = work.backend->encode(sounds, [](double) {});
        last = work.backend->readable(work.audio);
        return Reading{last, work.backend->read_otherwise(work.audio)};
    };
    const Published published =
        publish(destination, work.leveled[0], rendered(0), encode_and_read, work.progress);
    work.facts.after = published.after;
    work.facts.publishing = published.facts;
    measure_dialogue(work, last);
}

/** Puts the output together at its place from the audio and the input's metadata. */
void put_together(Work& work) {
    open_part(work);
    const std::string& path = work.part->path();
    if (work.changed) {
        work.audio = work.backend->add_metadata(
            work.audio, [&] { return loudness_after(work); }, path);
    }
    if (work.audio != path) {
        work.part->fill_from(work.audio);
    }
}

/** Writes the output, whole but without its name, at its place, unless it stands there. */
void stage(Work& work) {
    if (!work.part || work.audio != work.part->path()) {
        tell_of_output(work, [&] { put_together(work); });
        work.part->start_sync();
    }
}

/** Reads input and output through: the disk may be at work on the output meanwhile. */
void hash_contents(Work& work) {
    work.output_hash = content_hash(work.part->path());
    if (work.input_hash.empty()) {
        work.input_hash = content_hash(work.job.input);
    }
}

/** A reading of the audio serves for the output where both are one file. */
void check_result(Work& work) {
    loudness_after(work);
    note_dialogue(work);
    const std::string& path = work.part->path();
    work.backend->check(path, work.heard && work.heard_in == path ? &*work.heard : nullptr,
                        work.facts);
}

/** Has the content on the disk; the parent gives it its protection and its name. */
void hand_over(Work& work) {
    work.part->sync();
    loudness_after(work);
}

bool always(const Work& /*work*/) {
    return true;
}

bool measures(const Work& work) {
    return work.job.options.measure;
}

bool levels(const Work& work) {
    return !work.job.output.empty();
}

bool decodes(const Work& work) {
    return work.backend->decodes() && (levels(work) || measures(work));
}

bool changed(const Work& work) {
    return levels(work) && work.changed;
}

bool has_destination(const Work& work) {
    return changed(work) && !work.job.options.destination.empty();
}

bool has_none(const Work& work) {
    return changed(work) && work.job.options.destination.empty();
}

bool has_none_and_measures(const Work& work) {
    return has_none(work) && measures(work);
}

constexpr Stage kStages[] = {
    {probe, always, 0.0, 0.0},
    {decode, decodes, 0.0, 0.05},
    {measure_before, measures, 0.10, 0.14},
    {prepare, levels, 0.10, 0.14},
    {level, levels, 0.88, 0.70, StageOf::kLevel},
    {publish_audio, has_destination, 0.97, 0.97},
    {encode, has_none, 0.88, 0.85},
    {measure_after, has_none_and_measures, 0.97, 0.97},
    {stage, levels, 0.97, 0.97},
    {hash_contents, levels, 0.97, 0.97},
    {check_result, changed, 0.97, 0.97},
    {hand_over, levels, 1.0, 1.0},
};

}  // namespace

const std::vector<Stage>& stages() {
    static const std::vector<Stage> all(std::begin(kStages), std::end(kStages));
    return all;
}

}  // namespace quorvane
