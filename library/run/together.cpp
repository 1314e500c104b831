#include "library/run/together.h"

#include <fmt/format.h>

#include <cstdint>
#include <deque>
#include <filesystem>
#include <set>
#include <utility>

#include "leveling/audio/audio_formats.h"
#include "leveling/conversation/mix.h"
#include "library/run/file_output.h"
#include "library/run/pushed_frames.h"

namespace quorvane {
namespace fs = std::filesystem;

namespace {

/** Whether the sum of the tracks is written, too. */
enum class Mix { kNone, kWanted };

/** The command refuses the same options with --together. */
void require_fitting(const Settings& settings, Mix mix) {
    if (settings.plain) {
        throw CallError(QUORVANE_BAD_OPTION,
                        "plain is the engine alone, which levels no tracks together");
    }
    if (!settings.tuning.empty()) {
        throw CallError(QUORVANE_BAD_OPTION,
                        fmt::format("tuning option \"{}\": tracks are leveled together without the "
                                    "engine that it tunes",
                                    settings.tuning.front()));
    }
    if (!settings.target.empty() && mix == Mix::kNone) {
        throw CallError(QUORVANE_BAD_OPTION,
                        fmt::format("target \"{}\" is for the mix of the tracks, and none is "
                                    "written",
                                    settings.target));
    }
}

void require_mix(const std::string& mix) {
    if (!mix_format(lower_extension(mix), 0).is_known()) {
        throw CallError(
            QUORVANE_BAD_ARGUMENT,
            fmt::format(
                "{}: a mix is written as WAV, FLAC, AIFF, CAF, W64, RF64, MP3, Opus, Vorbis "
                "or AAC, so its name ends in .wav, .flac, .aiff, .caf, .w64, .rf64, .mp3, "
                ".opus, .ogg or .m4a",
                mix));
    }
}

/** No output is an input, an earlier file or another output. The mix may be the last output. */
void require_all_apart(const Settings& settings,
                       const std::vector<std::string>& inputs,
                       const std::vector<std::string>& outputs) {
    std::set<std::string> paths;
    for (std::size_t i = 0; i < outputs.size(); ++i) {
        if (i < inputs.size()) {
            require_readable(inputs[i]);
            require_apart(settings, inputs[i], outputs[i]);
        }
        for (const std::string& input : inputs) {
            require_free(settings, input, outputs[i]);
        }
        std::error_code error;
        const fs::path path = fs::weakly_canonical(fs::absolute(outputs[i]), error);
        if (!paths.insert(error ? outputs[i] : path.string()).second) {
            throw CallError(QUORVANE_BAD_ARGUMENT,
                            fmt::format("{}: is the output of two tracks", outputs[i]));
        }
    }
}

/** All outputs get their names, or none. */
void commit_all(const Settings& settings, std::vector<FileOutput>& files) {
    std::size_t done = 0;
    try {
        for (; done < files.size(); ++done) {
            files[done].commit(settings);
        }
    } catch (...) {
        for (std::size_t i = 0; i < done; ++i) {
            files[i].withdraw();
        }
        throw;
    }
}

}  // namespace

std::vector<Results> level_together(const CallContext& call,
                                    const std::vector<quorvane_audio>& tracks,
                                    const std::vector<quorvane_buffer>& buffers) {
    require_fitting(call.settings, Mix::kNone);
    std::uint64_t bytes = 0;  // of all tracks: they are in memory, or on the disk, as one
    for (const quorvane_audio& track : tracks) {
        bytes += track.frames * form_of(track).frame_bytes();
    }
    const Workplace place(call.settings, bytes);
    std::deque<PushedFrames> frames;  // they cannot be moved
    std::vector<GroupFile> files;
    for (std::size_t i = 0; i < tracks.size(); ++i) {
        with_errors_of_track(i, tracks.size(), [&] {
            frames.emplace_back(call.settings, form_of(tracks[i]), bytes);
            frames[i].add(call.settings, tracks[i]);
            files.push_back(frames[i].begin_leveling());
        });
    }
    std::vector<Results> results = level_group(call, place, files);
    for (PushedFrames& track : frames) {
        track.end_leveling();
    }
    for (std::size_t i = 0; i < tracks.size(); ++i) {
        with_errors_of_track(i, tracks.size(), [&] { frames[i].read_all(buffers[i]); });
    }
    return results;
}

std::vector<Results> level_files_together(const CallContext& call,
                                          const std::vector<std::string>& inputs,
                                          const std::vector<std::string>& outputs,
                                          const std::string& mix) {
    std::vector<std::string> all = outputs;
    if (!mix.empty()) {
        require_mix(mix);
        all.push_back(mix);
    }
    require_fitting(call.settings, mix.empty() ? Mix::kNone : Mix::kWanted);
    require_all_apart(call.settings, inputs, all);
    std::uint64_t bytes = 0;
    for (const std::string& input : inputs) {
        bytes += audio_bytes(call.settings, input);
    }
    const Workplace place(call.settings, bytes);
    std::vector<FileOutput> written;
    std::vector<GroupFile> files;
    for (std::size_t i = 0; i < all.size(); ++i) {
        const bool is_mix = i == inputs.size();
        const std::string& input = is_mix ? inputs.front() : inputs[i];
        written.emplace_back(place, input, all[i]);
        files.push_back({&place,
                         {fs::absolute(input).string(), is_mix ? mix : input},
                         written[i].destination(),
                         written[i].part(),
                         is_mix});
    }
    std::vector<Results> results = level_group(call, place, files);
    for (FileOutput& file : written) {
        file.complete();
    }
    commit_all(call.settings, written);
    return results;
}

}  // namespace quorvane
