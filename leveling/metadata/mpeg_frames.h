#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace quorvane {

/** Samples that a decoder leaves out at both ends, as an encoder's LAME tag states them. */
struct MpegTrim {
    int delay = 0;  // put in front by the encoder; the decoder's own kMpegDecoderDelay comes on top
    int padding = 0;  // behind the sound
};

constexpr int kMpegDecoderDelay = 529;  // samples, of every layer III decoder

/** Frames that follow one another without a hole. */
struct MpegRun {
    std::uint64_t lost = 0;   // frames that are missing in front of it, an estimate
    std::uint64_t begin = 0;  // bytes
    std::uint64_t end = 0;
    std::uint64_t frames = 0;
    bool cut_off = false;  // they need bits of lost frames, so only the bits they keep are of use
};

/** What an MPEG audio stream (layer III) consists of, frame by frame. */
struct MpegStream {
    std::uint64_t frames = 0;           // with audio; the first one with the count is none
    int samples_per_frame = 0;          // 1152, or 576 at the lower sample rates
    std::optional<std::uint64_t> told;  // frames after the stream's own count, if it has one
    std::optional<MpegTrim> trim;
    std::vector<MpegRun> runs;
    std::uint64_t missing = 0;  // behind the last run: promised, or begun and cut off

    /** Frames up to the last one that is there, lost ones included. */
    std::uint64_t frames_with_holes() const;

    /** Whether frames are missing, or cannot be decoded, between the first and the last. */
    bool has_holes() const;
};

/**
 * Walks over the frame headers of an MP3 file. Where bytes are damaged, inserted or missing it
 * goes on with the next two headers that fit; how many frames were lost follows from the
 * stream's count, else from the bytes between. Nothing for a stream of free bit rate or of another
 * layer. Throws std::system_error.
 */
std::optional<MpegStream> count_mpeg_frames(const std::string& path);

}  // namespace quorvane
