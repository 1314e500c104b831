#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "leveling/facts/run_facts.h"

/*
 * A conversation that was recorded on a track for each voice, all from the same moment on. Each
 * track also holds the other voices, more softly and a little later. Leveled by itself, such a
 * track has that spill raised to the level of a voice. So the tracks are leveled together: it is
 * found who speaks when, each owner gets the gains of his own phrases, spill goes down while its
 * track's owner is silent, and the voices are balanced as they sound in the mix of all tracks.
 */
namespace quorvane {

class OutputFile;

/** What became of one track. */
struct TrackResult {
    Leveling leveling;
    Preparation preparation;
    double speaks_s = 0;                   // its owner; 0: never
    std::vector<FindingPlace> turns = {};  // when its owner speaks, in the recording
    std::optional<TrackClock> clock = {};  // none for the first track
};

/** Whether a track keeps its own length, or begins and ends with the mix. */
enum class Aligning { Keep, Align };

class Conversation {
  public:
    using Progress = std::function<void(double)>;  // is called with 0 to 1

    /** recordings: files that libsndfile reads, of one or two channels. */
    explicit Conversation(std::vector<std::string> recordings);
    ~Conversation();
    Conversation(const Conversation&) = delete;
    Conversation& operator=(const Conversation&) = delete;

    /**
     * Reads all tracks and finds how their clocks differ, and their gains. Throws
     * std::runtime_error with the cause, which names no file.
     */
    void analyse(const Progress& progress);

    std::size_t tracks() const;

    /** Writes a track to a file of the recording's format. */
    TrackResult render(std::size_t index,
                       const std::string& to,
                       Aligning aligning,
                       const Progress& progress) const;

    /** Whether some tracks begin at other times, or drift. */
    bool is_apart() const;

    /**
     * Writes the sum of all tracks as a WAV file of floats, in stereo where a track is: nothing is
     * clipped. Throws FileError where the tracks have different sample rates.
     */
    void render_mix(const std::string& to, const Progress& progress) const;

  private:
    struct Track;

    void find_times();
    double end_s() const;
    TrackResult facts_of(const Track& track) const;
    void render_aligned(const Track& track, OutputFile& out, const Progress& progress) const;

    std::vector<std::unique_ptr<Track>> tracks_;
};

}  // namespace quorvane
