#pragma once

#include <sndfile.h>

#include <string>

#include "cli/worker/carrier.h"

namespace cli {

/**
 * The formats of libsndfile. Uncompressed and lossless ones go to the engine as they are; lossy
 * ones are decoded to float samples and encoded once.
 */
class SoundFileCarrier : public Carrier {
  public:
    explicit SoundFileCarrier(const Job& job) : job_(job) {}

    void probe(FileFacts& facts) override;

    std::string readable(const std::string& file) override { return file; }

    std::vector<std::string> engine_inputs() override;
    std::string encode(const std::vector<std::string>& leveled,
                       const std::function<void(double)>& progress) override;
    std::string add_metadata(const std::string& encoded, const Loudness* after) override;
    void check(const std::string& complete, FileFacts& facts) override;

  private:
    std::string in_scratch(const char* name) const;

    const Job& job_;
    SF_INFO info_{};  // of the input
};

}  // namespace cli
