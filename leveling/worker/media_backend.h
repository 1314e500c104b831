#pragma once

#include <string>
#include <vector>

#include "leveling/media/decode.h"
#include "leveling/media/media_file.h"
#include "leveling/worker/audio_backend.h"

namespace quorvane {

/**
 * Containers with sound among other streams: MP4, QuickTime, Matroska, ASF, AVI and so on. The
 * chosen sounds are decoded once to float samples; the file is rewritten with the leveled ones
 * in their place and all other packets copied.
 */
class MediaBackend : public AudioBackend {
  public:
    explicit MediaBackend(const Job& job) : job_(job) {}

    void probe(FileFacts& facts) override;

    bool decodes() const override { return true; }

    void decode(FileFacts& facts, const std::function<void(double)>& progress) override;
    std::string readable(const std::string& file) override;
    std::vector<std::string> engine_inputs() override;
    std::string encode(const std::vector<std::string>& leveled,
                       const std::function<void(double)>& progress) override;
    std::string add_metadata(const std::string& encoded,
                             const LoudnessSource& after,
                             const std::string& to) override;
    void check(const std::string& complete, const Scan* known, FileFacts& facts) override;

  private:
    std::string gapless() const;
    std::string quantized(std::size_t index, const std::string& leveled) const;
    void describe(FileFacts& facts) const;
    void judge(const media::DecodedSound& sound, FileFacts& facts) const;
    void decode_result(const std::string& complete);
    void check_sound(std::size_t index) const;

    const Job& job_;
    media::MediaFile file_;
    std::vector<media::DecodedSound> before_;  // of each chosen sound
    std::vector<media::DecodedSound> after_;   // of each of them in the result
    std::vector<bool> leveled_;
    std::vector<std::string> notes_;
};

}  // namespace quorvane
