#pragma once

#include <memory>
#include <string>

#include "cli/facts/run_facts.h"
#include "cli/worker/job.h"

namespace cli {

/**
 * What one kind of file asks of the work on it: how it is opened, decoded to what the engine takes,
 * encoded again, and given the metadata of its input. The engine itself and the measurement read
 * files through libsndfile; a kind that libsndfile cannot read is decoded for them.
 *
 * A carrier belongs to one job. Its functions are called in the order in which they stand here.
 * They write into the job's scratch directory only, and throw FileError, with a sentence for the
 * user, or another std::exception with the cause.
 */
class Carrier {
  public:
    virtual ~Carrier() = default;

    /**
     * Opens the input and fills in format, sample rate (Hz), channels, frames and notes. Where the
     * job asks for an output, refuses what could not be written back.
     */
    virtual void probe(FileFacts& facts) = 0;

    /**
     * A file that libsndfile reads with the same audio as the given one, which is the input or a
     * result of encode(): the file itself where nothing has to be decoded.
     */
    virtual std::string readable(const std::string& file) = 0;

    /** The file that the engine takes, uncompressed or lossless: the input itself where that is. */
    virtual std::string engine_input() = 0;

    /** The leveled audio (in the engine input's format) in the input's format and bit rate. */
    virtual std::string encode(const std::string& leveled) = 0;

    /**
     * The complete result: the encoded audio with the input's metadata. `after` is the loudness of
     * the new audio for the fields that tell it, null when it was not measured.
     */
    virtual std::string add_metadata(const std::string& encoded, const Loudness* after) = 0;

    /** Compares the complete result with the input: throws FileError, or adds notes. */
    virtual void check(const std::string& complete, FileFacts& facts) = 0;
};

/** The carrier for the job's input. */
std::unique_ptr<Carrier> make_carrier(const Job& job);

}  // namespace cli
