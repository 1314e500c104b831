#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "library/run/work.h"
#include "library/run/workplace.h"
#include "library/samples/sample_file.h"

namespace quorvane {

/** The form that frames of the caller's have. */
SampleForm form_of(const quorvane_audio& audio);

/**
 * Frames that come in pieces, are worked on as one recording, and are read in pieces. They stand in
 * memory up to the bound of the settings, and move to the scratch folder when they pass it. Also
 * serves frames that come at once.
 */
class PushedFrames {
  public:
    /** bytes: what is expected, for the choice of the place. */
    PushedFrames(const Settings& settings, const SampleForm& form, std::uint64_t bytes);

    const SampleForm& form() const { return form_; }

    /** Throws CallError where a sample is not a number; then the frames were not added. */
    void add(const Settings& settings, const quorvane_audio& audio);

    /** Levels, limits or measures what was added, which is the end of it. */
    Results level(const CallContext& call);
    Results limit(const CallContext& call);
    Results measure(const CallContext& call);

    /** Ends the adding; the file of the frames, and an empty one for the leveled frames. */
    GroupFile begin_leveling();

    /** Reads from the file that begin_leveling() made, which is complete now. */
    void end_leveling();

    bool is_finished() const { return !writer_; }

    /** Frames of the result; 0 at its end. */
    std::uint64_t read(const quorvane_buffer& to, std::uint64_t frames);

    /** All of the result. */
    void read_all(const quorvane_buffer& to);

  private:
    void add_interleaved(const Settings& settings, const char* samples, std::uint64_t frames);
    void move_to_disk(const Settings& settings);
    void finish_writing();
    Recording recording() const;

    SampleForm form_;
    std::unique_ptr<Workplace> place_;
    std::optional<SampleWriter> writer_;
    std::optional<SampleReader> reader_;
    std::vector<char> block_;
};

/** Loudness and peaks of frames that stand in the caller's memory without gaps; copies none. */
Results measure_in_place(const CallContext& call, const quorvane_audio& audio);

}  // namespace quorvane
