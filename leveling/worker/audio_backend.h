#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "leveling/audio/scan.h"
#include "leveling/facts/run_facts.h"
#include "leveling/worker/job.h"

namespace quorvane {

/**
 * What one kind of file asks of the work on it: how it is opened, decoded to what the engine takes,
 * encoded again, and given the metadata of its input. The engine itself and the measurement read
 * files through libsndfile; a kind that libsndfile cannot read is decoded for them.
 *
 * A backend belongs to one job. Its functions are called in the order in which they stand here.
 * They write into the job's scratch directory only, and throw FileError, with a sentence for the
 * user, or another std::exception with the cause.
 */
class AudioBackend {
  public:
    virtual ~AudioBackend() = default;

    /**
     * Opens the input and fills in format, sample rate (Hz), channels, frames and notes. Where the
     * job has an output, refuses what could not be written back.
     */
    virtual void probe(FileFacts& facts) = 0;

    /** Whether decode() has work to do that takes its time. */
    virtual bool decodes() const { return false; }

    /** Decodes the sound and corrects the facts by it; progress is called with 0 to 1. */
    virtual void decode(FileFacts& /*facts*/, const std::function<void(double)>& /*progress*/) {}

    /**
     * A file that libsndfile reads with the same audio as the given one, which is the input or a
     * result of encode(): the file itself where nothing has to be decoded.
     */
    virtual std::string readable(const std::string& file) = 0;

    /**
     * The audio of a result of encode() as another decoder makes it, in a file that libsndfile
     * reads; empty where decoders do not differ, or the build has one only.
     */
    virtual std::string read_otherwise(const std::string& /*result*/) { return ""; }

    /**
     * The files that the engine takes, uncompressed or lossless: the input itself where that is.
     * More than one where a file's sounds are leveled each by itself; the facts are the first's.
     */
    virtual std::vector<std::string> engine_inputs() = 0;

    /**
     * The leveled audio (of each engine input, in its format; empty where it is to stay as it was)
     * in the input's format and bit rate. progress is called with 0 to 1. Called again, with other
     * audio, where the result was not yet what it is for.
     */
    virtual std::string encode(const std::vector<std::string>& leveled,
                               const std::function<void(double)>& progress) = 0;

    /**
     * Where the leveled audio of the one engine input needs nothing but complete() to be the
     * output: the bytes to be left free in front of it. Then the engine may write it to the
     * output's place.
     */
    virtual std::optional<std::uint64_t> room_in_place() { return std::nullopt; }

    /**
     * Puts the input's metadata around leveled audio that stands behind so much room. False, with
     * nothing written, where the result has to be put together from both after all.
     */
    virtual bool complete(const std::string& /*leveled*/, std::uint64_t /*room*/) { return false; }

    /**
     * The complete result: the encoded audio with the input's metadata. It is written to `to`, an
     * empty file that keeps its place and its owner, where that spares a copy; the path of what is
     * complete is returned. `after` gives the loudness of the new audio for the fields that tell
     * it, null when it is not measured; it may have to wait for that, so ask it only if need be.
     */
    virtual std::string add_metadata(const std::string& encoded,
                                     const LoudnessSource& after,
                                     const std::string& to) = 0;

    /**
     * Compares the complete result with the input: throws FileError, or adds notes. `known` is what
     * a reading of its audio has given, null where it was not read yet.
     */
    virtual void check(const std::string& complete, const Scan* known, FileFacts& facts) = 0;
};

/** Throws FileError where probed facts show more channels than can be leveled. */
void require_channels(const FileFacts& facts, const JobOptions& options);

/**
 * The backend for the job's input. Throws FileError where libsndfile does not read it and the
 * module for other files cannot be loaded.
 */
std::unique_ptr<AudioBackend> make_backend(const Job& job);

}  // namespace quorvane
