#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <sndfile.hh>
#include <string>
#include <vector>

#include "Common/stream/sound_source.h"
#include "leveling/audio/dither.h"

namespace quorvane {

/** An audio file that is read as a source. Errors are the library's reasons, without a name. */
class InputFile {
  public:
    explicit InputFile(const std::string& path);

    SoundSource& source() { return *source_; }

    const SF_INFO& info() const { return info_; }

  private:
    SndfileHandle file_;
    SF_INFO info_{};
    std::unique_ptr<SoundSource> source_;
};

/**
 * Where rendered audio goes: a file of any format that libsndfile writes. The one quantisation of a
 * recording happens here, with dither for up to 16 bits.
 */
class OutputFile {
  public:
    /**
     * At a path, or into an open file at its position, which stays the caller's. bits_to: the
     * encoding and container, libsndfile's number.
     */
    OutputFile(const std::string& path, int format, int channels, int sample_rate_hz);
    OutputFile(int descriptor, int format, int channels, int sample_rate_hz);

    /** The places of the channels, libsndfile's names; nothing where there are none. */
    void set_channel_map(const std::vector<int>& map);

    /** A channel whose samples are those of the input: they get no dither. */
    void keep_exact(int channel);

    /** Interleaved frames, and the same frames of the recording that they were made from. */
    void take(const double* samples, const double* recording, long long frames);

    /** Completes the file. Throws std::runtime_error where it is not whole. */
    void finish();

    bool is_dithered() const { return dither_.has_value(); }

  private:
    void write_ready();

    SndfileHandle file_;
    long long frames_ = 0;
    std::optional<quorvane::Dither> dither_;
    std::vector<std::int16_t> ready_;
};

}  // namespace quorvane
