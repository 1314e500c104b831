#pragma once

#include <cstddef>
#include <cstdint>

#include "quorvane/quorvane.h"

/*
 * Frames in a caller's memory, in any of its layouts, as interleaved samples without gaps and back.
 */

namespace quorvane {

/** Bytes of a sample; 0 for a number that does not name a type. */
std::size_t sample_bytes(int type);

/** Where samples lie: the address of a channel's first sample, and the bytes between frames. */
class Layout {
  public:
    /** What the structs of the header say; in place of strides of 0 those without gaps. */
    explicit Layout(const quorvane_audio& audio);
    Layout(const quorvane_buffer& buffer, int type, int channels);

    /** One block of memory with the samples in their order. */
    bool is_interleaved() const;

    /** The first sample of a frame in a channel. */
    char* at(std::uint64_t frame, int channel) const;

    int channels() const { return channels_; }

    std::size_t bytes() const { return bytes_; }

  private:
    void set_strides(std::ptrdiff_t frame_stride, std::ptrdiff_t channel_stride);

    std::size_t bytes_;
    int channels_;
    char* samples_;              // null: planes
    const void* const* planes_;  // one for each channel
    std::ptrdiff_t frame_stride_ = 0;
    std::ptrdiff_t channel_stride_ = 0;
};

/** Copies frames, from the frame `begin` on, to interleaved samples. */
void gather(const Layout& from, std::uint64_t begin, std::uint64_t frames, char* to);

/** The reverse. */
void scatter(const char* from, std::uint64_t frames, const Layout& to, std::uint64_t begin);

/** The place of the first sample that is infinite or not a number; count where there is none. */
std::size_t first_not_finite(int type, const char* samples, std::size_t count);

}  // namespace quorvane
