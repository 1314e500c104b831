#include "leveling/batch/groups.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <map>
#include <memory>
#include <set>
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

/** Gives a file of a group that nothing is known of, or that is done, an end. */
void end_with_group(PlannedFile& file, Outcome outcome, const std::string& cause) {
    if (file.known && !has_outcome(file, Outcome::UpToDate) &&
        !has_outcome(file, Outcome::Planned)) {
        return;
    }
    file.known = std::make_shared<FileFacts>();
    file.known->input = file.input;
    file.known->output = file.output;
    file.known->outcome = outcome;
    file.known->cause = cause;
}

/** Throws UsageError where no mix can be written to the path. */
void require_mix(const std::string& mix, const std::vector<PlannedFile>& files) {
    if (!mix_format(lower_extension(mix), 0).is_known()) {
        throw UsageError(
            fmt::format("--mix {}: a mix is written as WAV, FLAC, AIFF, CAF, W64, RF64, MP3, Opus, "
                        "Vorbis or AAC, so its name must end in .wav, .flac, .aiff, .caf, .w64, "
                        ".rf64, .mp3, .opus, .ogg or .m4a",
                        mix));
    }
    std::error_code error;
    for (const PlannedFile& file : files) {
        // Inputs are compared as files, through links; outputs may not exist yet, so by their
        // paths.
        const bool is_input = fs::equivalent(mix, file.input, error);
        const bool is_output =
            fs::absolute(mix).lexically_normal() == fs::absolute(file.output).lexically_normal();
        if (is_input || is_output) {
            throw UsageError(
                fmt::format("--mix {} is a track or a leveled track; name another file", mix));
        }
    }
    if (fs::exists(mix, error) && !fs::is_regular_file(mix, error)) {
        throw UsageError(fmt::format("--mix {} exists and is not a regular file", mix));
    }
}

using Tracks = std::vector<PlannedFile*>;

/** The tracks of each conversation. A file that is skipped takes no part. */
std::vector<Tracks> conversations_in(std::vector<PlannedFile>& files) {
    const bool by_folder = std::all_of(files.begin(), files.end(), [](const PlannedFile& file) {
        return file.searched || !file.skip.empty();
    });
    std::map<std::string, Tracks> by_place;
    for (PlannedFile& file : files) {
        if (file.skip.empty()) {
            by_place[by_folder ? fs::path(file.input).parent_path().string() : ""].push_back(&file);
        }
    }
    std::vector<Tracks> conversations;
    conversations.reserve(by_place.size());
    for (auto& [place, tracks] : by_place) {
        conversations.push_back(std::move(tracks));
    }
    return conversations;
}

bool is_conversation(const Tracks& tracks) {
    return tracks.size() >= 2 && tracks.size() <= kMostTracks;
}

/** Where --mix is to be for these tracks; of several conversations each has its own. */
std::string mix_path(const Request& request, const Tracks& tracks, std::size_t conversations) {
    if (conversations == 1) {
        return request.mix;
    }
    if (fs::path(request.mix).has_parent_path()) {
        throw UsageError(
            fmt::format("--mix {}: for {} conversations it takes a name without a folder, and each "
                        "mix goes beside its leveled tracks",
                        request.mix, conversations));
    }
    return (fs::path(tracks.front()->output).parent_path() / request.mix).string();
}

PlannedFile mix_of(const Tracks& tracks, const std::string& path) {
    PlannedFile mix;
    // It needs an input to be identified by; that of the first track stands in.
    mix = *tracks.front();
    mix.output = path;
    mix.problem.clear();
    mix.note.clear();
    mix.mix = true;
    return mix;
}

/** Makes the tracks one group. */
void set_group(const Tracks& tracks, int group) {
    const bool is_settling = std::any_of(tracks.begin(), tracks.end(),
                                         [](const PlannedFile* track) { return track->settling; });
    for (PlannedFile* track : tracks) {
        track->group = group;
        track->tracks = static_cast<int>(tracks.size());
        track->first_track = tracks.front()->input;
        // A conversation is leveled as a whole, so all wait for the last one.
        track->settling = is_settling;
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

std::vector<std::string> tracks_of(const std::vector<PlannedFile>& files, int group) {
    std::vector<std::string> tracks;
    for (const PlannedFile& file : files) {
        if (file.group == group && !file.mix) {
            tracks.push_back(file.input);
        }
    }
    return tracks;
}

void make_groups(const Request& request, std::vector<PlannedFile>& files) {
    const std::vector<Tracks> conversations = conversations_in(files);
    if (conversations.size() <= 1 &&
        (conversations.empty() || !is_conversation(conversations.front()))) {
        throw UsageError(
            fmt::format("--together levels from 2 to {} tracks of one conversation, not {}",
                        kMostTracks, conversations.empty() ? 0 : conversations.front().size()));
    }
    std::vector<PlannedFile> mixes;
    int group = 0;
    for (const Tracks& tracks : conversations) {
        if (!is_conversation(tracks)) {
            for (PlannedFile* track : tracks) {
                track->problem = fmt::format(
                    "--together takes the files of each folder as one conversation of 2 to {} "
                    "tracks, and this folder has {}; name the tracks of a conversation one by one "
                    "where they are in several folders",
                    kMostTracks, tracks.size());
            }
            continue;
        }
        set_group(tracks, ++group);
        if (!request.mix.empty()) {
            mixes.push_back(mix_of(tracks, mix_path(request, tracks, conversations.size())));
        }
    }
    for (PlannedFile& mix : mixes) {
        require_mix(mix.output, files);
    }
    files.insert(files.end(), std::make_move_iterator(mixes.begin()),
                 std::make_move_iterator(mixes.end()));
}

void PlannedGroups::add(const FileFacts& facts, PlannedFile& file) {
    if (!facts.conversation || facts.conversation->first_track.empty() || file.output.empty()) {
        return;  // leveled by itself, or only measured
    }
    const int next = static_cast<int>(group_of_.size()) + 1;
    file.group = group_of_.emplace(facts.conversation->first_track, next).first->second;
    file.first_track = facts.conversation->first_track;
    file.tracks = facts.conversation->tracks;
    file.mix = facts.conversation->mix;
}

void PlannedGroups::check(const Request& request, std::vector<PlannedFile>& files) const {
    const bool has_mix =
        std::any_of(files.begin(), files.end(), [](const PlannedFile& file) { return file.mix; });
    if (request.together && group_of_.empty() && !files.empty()) {
        throw UsageError(fmt::format(
            "--plan {} holds no conversation; make the plan with --together", request.plan));
    }
    if (!request.mix.empty() && !has_mix) {
        throw UsageError(
            fmt::format("--plan {} holds no mix; make the plan with --mix", request.plan));
    }
    if (!group_of_.empty() && !has_mix && !request.destinations.empty()) {
        throw UsageError(fmt::format(
            "--for is for the mix of a conversation, and --plan {} holds none; make the plan with "
            "--mix",
            request.plan));
    }
    std::map<int, int> found;
    for (const PlannedFile& file : files) {
        found[file.group] += file.mix ? 0 : 1;
    }
    for (PlannedFile& file : files) {
        if (file.group != 0 && found[file.group] != file.tracks) {
            file.problem = fmt::format("the plan has {} of the {} tracks of its conversation",
                                       found[file.group], file.tracks);
        }
    }
}

void add_conversation(const PlannedFile& file, FileFacts& facts) {
    if (file.group == 0) {
        return;
    }
    if (!facts.conversation) {
        facts.conversation = ConversationPart{};
        facts.conversation->tracks = file.tracks;
        facts.conversation->mix = file.mix;
    }
    facts.conversation->first_track = file.first_track;
}

void judge_groups(std::vector<PlannedFile>& files,
                  const std::vector<std::vector<std::string>>& input_hashes) {
    struct Standing {
        std::size_t members = 0;
        std::size_t done = 0;
        const PlannedFile* left_alone = nullptr;
        std::set<std::vector<std::string>> made_from = {};
    };

    std::map<int, Standing> standings;
    for (std::size_t i = 0; i < files.size(); ++i) {
        const PlannedFile& file = files[i];
        if (file.group == 0 || file.settling) {
            continue;
        }
        Standing& standing = standings[file.group];
        ++standing.members;
        if (has_outcome(file, Outcome::UpToDate)) {
            ++standing.done;
            standing.made_from.insert(input_hashes[i]);
        }
        if (has_outcome(file, Outcome::Skipped) || has_outcome(file, Outcome::Damaged)) {
            standing.left_alone = &file;
        }
    }
    for (PlannedFile& file : files) {
        const auto at = standings.find(file.group);
        if (at == standings.end()) {
            continue;
        }
        const Standing& standing = at->second;
        // One that may not be replaced stops all; if all are done there is nothing to do; otherwise
        // all are made again, as each one's gains depend on the other tracks.
        if (standing.left_alone != nullptr) {
            end_with_group(
                file, Outcome::Skipped,
                fmt::format("its conversation is left alone: {}: {}", standing.left_alone->output,
                            standing.left_alone->known->cause));
        } else if (has_outcome(file, Outcome::UpToDate) &&
                   (standing.done < standing.members || standing.made_from.size() > 1)) {
            file.known.reset();
            file.renew = true;
        }
    }
}

// One of them failed in the look before the work: then none is leveled.
void fail_groups(std::vector<PlannedFile>& files) {
    std::map<int, std::string> causes;
    for (const PlannedFile& file : files) {
        if (file.group != 0 && has_outcome(file, Outcome::Failed)) {
            causes.emplace(file.group,
                           fmt::format("its conversation was not leveled, as {} failed: {}",
                                       file.input, file.known->cause));
        }
    }
    for (PlannedFile& file : files) {
        if (const auto cause = causes.find(file.group); cause != causes.end()) {
            end_with_group(file, Outcome::Failed, cause->second);
        }
    }
}

}  // namespace quorvane
