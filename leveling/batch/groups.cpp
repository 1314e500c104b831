#include "leveling/batch/groups.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <memory>
#include <utility>

#include "leveling/audio/audio_formats.h"
#include "leveling/conversation/mix.h"
#include "leveling/facts/run_facts.h"
#include "leveling/worker/look.h"

namespace quorvane {
namespace fs = std::filesystem;

namespace {

// All tracks are in memory as levels, and open at the same time.
constexpr std::size_t kMostTracks = 64;
constexpr double kShortest_s = 10;  // of tracks that are recognised

bool has_outcome(const PlannedFile& file, Outcome outcome) {
    return file.known && file.known->outcome == outcome;
}

/** Gives the files of the group that nothing is known of, or that are done, an end. */
void end_others(std::vector<PlannedFile>& files, Outcome outcome, const std::string& cause) {
    for (PlannedFile& file : files) {
        if (file.group == 0 || (file.known && !has_outcome(file, Outcome::UpToDate) &&
                                !has_outcome(file, Outcome::Planned))) {
            continue;
        }
        file.known = std::make_shared<FileFacts>();
        file.known->input = file.input;
        file.known->output = file.output;
        file.known->outcome = outcome;
        file.known->cause = cause;
    }
}

/** Throws UsageError where no mix can be written to the path of --mix. */
void require_mix(const Request& request, const std::vector<PlannedFile>& files) {
    if (!mix_format(lower_extension(request.mix), 0).is_known()) {
        throw UsageError(
            fmt::format("--mix {}: a mix is written as WAV, FLAC, AIFF, CAF, W64, RF64, MP3, Opus, "
                        "Vorbis or AAC, so its name must end in .wav, .flac, .aiff, .caf, .w64, "
                        ".rf64, .mp3, .opus, .ogg or .m4a",
                        request.mix));
    }
    std::error_code error;
    for (const PlannedFile& file : files) {
        // Inputs are compared as files, through links; outputs may not exist yet, so by their
        // paths.
        const bool is_input = fs::equivalent(request.mix, file.input, error);
        const bool is_output = fs::absolute(request.mix).lexically_normal() ==
                               fs::absolute(file.output).lexically_normal();
        if (is_input || is_output) {
            throw UsageError(fmt::format(
                "--mix {} is a track or a leveled track; name another file", request.mix));
        }
    }
    if (fs::exists(request.mix, error) && !fs::is_regular_file(request.mix, error)) {
        throw UsageError(fmt::format("--mix {} exists and is not a regular file", request.mix));
    }
}

/** "a.wav, b.wav and 3 more". */
std::string names_of(const std::vector<PlannedFile*>& files) {
    constexpr std::size_t kMostNames = 6;
    std::string text;
    for (std::size_t i = 0; i < std::min(files.size(), kMostNames); ++i) {
        text += (i == 0 ? "" : ", ") + fs::path(files[i]->input).filename().string();
    }
    return files.size() > kMostNames
               ? fmt::format("{} and {} more", text, files.size() - kMostNames)
               : text;
}

/** Fails tracks of one conversation that are given without --together and --separate. */
void refuse_together(const std::vector<PlannedFile*>& tracks) {
    const std::string cause = fmt::format(
        "looks like one of {} tracks of one conversation ({}): leveled by itself, the voices of "
        "the "
        "others would come up with its own; --together levels them together, --separate each by "
        "itself",
        tracks.size(), names_of(tracks));
    for (PlannedFile* track : tracks) {
        auto facts = std::make_shared<FileFacts>();
        facts->input = track->input;
        facts->output = track->output;
        facts->outcome = Outcome::Failed;
        facts->cause = cause;
        track->known = facts;
    }
}

}  // namespace

void refuse_conversations(std::vector<PlannedFile>& files, const std::vector<double>& seconds) {
    // Candidates lie in one folder and have the same length; then their sound decides.
    std::map<std::pair<std::string, double>, std::vector<PlannedFile*>> alike;
    for (std::size_t i = 0; i < files.size(); ++i) {
        const bool is_to_do = !files[i].known || has_outcome(files[i], Outcome::Planned);
        if (is_to_do && files[i].group == 0 && !files[i].settling && seconds[i] > kShortest_s) {
            alike[{fs::path(files[i].input).parent_path().string(), seconds[i]}].push_back(
                &files[i]);
        }
    }
    for (const auto& [place, candidates] : alike) {
        if (candidates.size() < 2) {
            continue;
        }
        std::vector<std::string> inputs;
        for (const PlannedFile* file : candidates) {
            inputs.push_back(file->input);
        }
        // Indexes of inputs, a set for each conversation; this reads the sound.
        for (const std::vector<std::size_t>& set : conversations_among(inputs)) {
            std::vector<PlannedFile*> tracks;
            tracks.reserve(set.size());
            for (const std::size_t at : set) {
                tracks.push_back(candidates[at]);
            }
            refuse_together(tracks);
        }
    }
}

std::vector<std::string> tracks_of(const std::vector<PlannedFile>& files) {
    std::vector<std::string> tracks;
    for (const PlannedFile& file : files) {
        if (file.group != 0 && !file.mix) {
            tracks.push_back(file.input);
        }
    }
    return tracks;
}

void make_group(const Request& request, std::vector<PlannedFile>& files) {
    std::vector<PlannedFile*> tracks;
    bool is_settling = false;
    for (PlannedFile& file : files) {
        // A file that is skipped takes no part.
        if (file.skip.empty()) {
            file.group = 1;
            tracks.push_back(&file);
            is_settling = is_settling || file.settling;
        }
    }
    if (tracks.size() < 2 || tracks.size() > kMostTracks) {
        throw UsageError(
            fmt::format("--together levels from 2 to {} tracks of one conversation, "
                        "not {}",
                        kMostTracks, tracks.size()));
    }
    // A conversation is leveled as a whole, so all wait for the last one.
    for (PlannedFile* track : tracks) {
        track->settling = is_settling;
    }
    if (!request.mix.empty()) {
        require_mix(request, files);
        PlannedFile mix;
        // It needs an input to be identified by; that of the first track stands in.
        mix.input = tracks.front()->input;
        mix.output = request.mix;
        mix.bytes = tracks.front()->bytes;
        mix.settling = is_settling;
        mix.group = 1;
        mix.mix = true;
        files.push_back(mix);
    }
}

void judge_group(std::vector<PlannedFile>& files) {
    std::size_t members = 0;
    std::size_t done = 0;
    const PlannedFile* left_alone = nullptr;
    for (const PlannedFile& file : files) {
        if (file.group == 0 || file.settling) {
            continue;
        }
        ++members;
        done += has_outcome(file, Outcome::UpToDate) ? 1 : 0;
        if (has_outcome(file, Outcome::Skipped) || has_outcome(file, Outcome::Damaged)) {
            left_alone = &file;
        }
    }
    // One that may not be replaced stops all; if all are done there is nothing to do; otherwise all
    // are made again.
    if (left_alone != nullptr) {
        end_others(files, Outcome::Skipped,
                   fmt::format("its conversation is left alone: {}: {}", left_alone->output,
                               left_alone->known->cause));
    } else if (done < members) {
        for (PlannedFile& file : files) {
            if (file.group != 0 && has_outcome(file, Outcome::UpToDate)) {
                // Its gains depend on the other tracks, so it is made again with them.
                file.known.reset();
                file.renew = true;
            }
        }
    }
}

// One of them failed in the look before the work: then none is leveled.
void fail_group(std::vector<PlannedFile>& files) {
    const auto failed = std::find_if(files.begin(), files.end(), [](const PlannedFile& file) {
        return file.group != 0 && has_outcome(file, Outcome::Failed);
    });
    if (failed != files.end()) {
        const std::string cause = fmt::format("its conversation was not leveled, as {} failed: {}",
                                              failed->input, failed->known->cause);
        end_others(files, Outcome::Failed, cause);
    }
}

}  // namespace quorvane
