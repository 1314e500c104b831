#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <sndfile.hh>
#include <string>

#include "Common/files/descriptor.h"
#include "library/samples/frames.h"

namespace quorvane {

/** What all frames of a recording share. */
struct SampleForm {
    int type = QUORVANE_FLOAT32;
    int sample_rate_hz = 0;
    int channels = 0;

    std::size_t frame_bytes() const {
        return sample_bytes(type) * static_cast<std::size_t>(channels);
    }
};

/** What precedes so many bytes of frames in a WAV file; beyond 4 GiB of RF64 (EBU Tech 3306). */
std::string wav_header(const SampleForm& form, std::uint64_t data_bytes);

/**
 * A WAV file that frames are appended to, in their own sample type. The header is written at the
 * end, when the length is known. Throws std::system_error.
 */
class SampleWriter {
  public:
    SampleWriter(const std::string& path, const SampleForm& form);

    /** Goes on with a file that was not finished, where so many bytes of frames stand. */
    SampleWriter(const std::string& path, const SampleForm& form, std::uint64_t bytes);

    void add(const char* interleaved, std::size_t bytes);

    /** Writes the header and closes the file. */
    void finish();

    /** Of the frames. */
    std::uint64_t bytes() const { return bytes_; }

  private:
    void write_at(std::uint64_t place, const char* from, std::size_t bytes) const;

    Descriptor file_;
    SampleForm form_;
    std::uint64_t bytes_ = 0;
};

/** Reads a file that libsndfile opens as interleaved samples of a type. */
class SampleReader {
  public:
    /** Throws std::runtime_error with libsndfile's reason. */
    SampleReader(const std::string& path, int type);

    /** Reads up to so many frames. Throws std::runtime_error with the cause. */
    std::uint64_t read(char* to, std::uint64_t frames);

    std::uint64_t frames() const { return static_cast<std::uint64_t>(file_.frames()); }

  private:
    SndfileHandle file_;
    int type_;
};

}  // namespace quorvane
