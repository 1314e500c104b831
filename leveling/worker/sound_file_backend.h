#pragma once

#include <sndfile.h>

#include <string>

#include "leveling/audio/recode.h"
#include "leveling/facts/loss.h"
#include "leveling/metadata/data_size.h"
#include "leveling/worker/audio_backend.h"

namespace quorvane {

/**
 * The formats of libsndfile. Uncompressed and lossless ones go to the engine as they are; lossy
 * ones, and lossless ones that are cut short or do not tell their length, are decoded to float
 * samples and encoded once.
 *
 * No length in a header is believed: what is there is compared with it, and what is lost of the
 * sound, in holes or at the end, is judged by the job's limit (leveling/facts/loss.h). Where
 * libsndfile gives up at damage, FFmpeg's decoders go on behind it.
 */
class SoundFileBackend : public AudioBackend {
  public:
    explicit SoundFileBackend(const Job& job) : job_(job) {}

    void probe(FileFacts& facts) override;

    std::string readable(const std::string& file) override;
    std::string read_otherwise(const std::string& result) override;

    std::vector<std::string> engine_inputs() override;
    std::string encode(const std::vector<std::string>& leveled,
                       const std::function<void(double)>& progress) override;
    std::optional<std::uint64_t> room_in_place() override;
    bool complete(const std::string& leveled, std::uint64_t room) override;
    std::string add_metadata(const std::string& encoded,
                             const LoudnessSource& after,
                             const std::string& to) override;
    void check(const std::string& complete, const Scan* known, FileFacts& facts) override;

  private:
    std::string in_scratch(const char* name) const;
    void note_damage(FileFacts& facts, const std::string& text) const;
    void repair_header(FileFacts& facts);
    void repair_mpeg();
    void repair_adpcm();
    void read_info(FileFacts& facts);
    bool must_be_decoded();
    Decoded decode_damaged(const Decoded& readable);
    void decode_source(FileFacts& facts);

    /** The result as players decode it; see write_opus_at_full_rate. */
    std::string full_rate(const std::string& result) const;

    /** Whether the file is worked on in floats and dithered at the end. */
    bool is_quantized_once() const;

    /** Whether the headers alone are wanted: a job without a scratch directory writes nothing. */
    bool only_looks() const { return job_.scratch.empty(); }

    const Job& job_;
    std::string source_;   // the input, or its copy in scratch with a true header
    std::string decoded_;  // the decoded source; empty where it need not be decoded
    DataSize data_;        // what the header promises
    SF_INFO info_{};       // of the input, with the frames that are there
    Loss loss_;            // of its sound
    bool is_damaged_ = false;
};

}  // namespace quorvane
