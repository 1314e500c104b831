#pragma once

#include <cstddef>
#include <cstdint>
#include <fstream>
#include <optional>
#include <string>
#include <vector>

namespace quorvane::media {

/**
 * The frames of a stream without a container, ADTS or AC-3, one behind the other. Demuxers close
 * the holes of such a stream silently, since it holds no times; here the bytes between two good
 * frames tell how many were lost.
 */
class BareFrames {
  public:
    struct Frame {
        const std::uint8_t* bytes = nullptr;  // until the next call
        std::size_t size = 0;
        std::int64_t lost = 0;  // frames in front of it, an estimate from their usual size
    };

    /** demuxer: FFmpeg's name, "aac", "ac3" or "eac3". Throws std::system_error. */
    BareFrames(const std::string& path, const std::string& demuxer);

    /** Whether a demuxer's streams are of this kind. */
    static bool are_in(const std::string& demuxer);

    /** The next good frame; nothing at the end. */
    std::optional<Frame> next();

    /** Frames that were begun, or damaged, behind the last good one. */
    std::int64_t missing() const { return missing_; }

  private:
    const std::uint8_t* bytes_at(std::uint64_t at, std::size_t count);
    std::size_t frame_bytes(std::uint64_t at);
    bool is_followed(std::uint64_t end);
    bool same_stream(const std::uint8_t* header) const;
    std::optional<std::uint64_t> find(std::uint64_t from);
    std::int64_t frames_in(std::uint64_t bytes, std::size_t frame) const;

    std::ifstream file_;
    bool is_adts_;
    std::uint64_t end_ = 0;
    std::vector<std::uint8_t> block_;
    std::uint64_t block_at_ = 0;
    std::vector<std::uint8_t> first_;  // the header of the first frame
    std::optional<std::uint64_t> at_;
    std::int64_t lost_ = 0;
    std::int64_t missing_ = 0;
    std::uint64_t good_bytes_ = 0;
    std::uint64_t good_ = 0;  // frames
};

/** Whether frames are missing between the first and the last of such a stream, or at its end. */
bool has_holes(const std::string& path, const std::string& demuxer);

}  // namespace quorvane::media
