#pragma once

#include <cstddef>
#include <functional>
#include <memory>
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

/** What became of one track. */
struct TrackResult {
    Leveling leveling;
    Preparation preparation;
    double speaks_s = 0;  // its owner; 0: never
};

class Conversation {
  public:
    using Progress = std::function<void(double)>;  // is called with 0 to 1

    /** recordings: files that libsndfile reads, of one or two channels. */
    explicit Conversation(std::vector<std::string> recordings);
    ~Conversation();
    Conversation(const Conversation&) = delete;
    Conversation& operator=(const Conversation&) = delete;

    /**
     * Reads all tracks and finds their gains. Throws std::runtime_error with the cause, which names
     * no file.
     */
    void analyse(const Progress& progress);

    std::size_t tracks() const;

    /** Writes a track to a file of the recording's format. */
    TrackResult render(std::size_t index, const std::string& to, const Progress& progress) const;

    /**
     * Writes the sum of all tracks as a WAV file of floats, in stereo where a track is: nothing is
     * clipped. Throws FileError where the tracks have different sample rates.
     */
    void render_mix(const std::string& to, const Progress& progress) const;

  private:
    struct Track;

    std::vector<std::unique_ptr<Track>> tracks_;
};

}  // namespace quorvane
