#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "Common/audio/sample_codec.h"
#include "Common/audio/sound_handle.h"
#include "Common/stream/read_ahead.h"
#include "Common/stream/stream.h"

namespace level_engine {

/**
 * An open sound file as a source. Checks libsndfile's error after every read. Without a Failure
 * function a damaged file gives the frames that can be read, and missing frames are reported as a
 * defect (reporting/failure.h).
 */
class SoundSource : public stream::Source {
  public:
    /** Throws the step's error for a file that cannot be read; the handle still has the cause. */
    using Failure = std::function<void(const SoundHandle& handle, const std::string& path)>;

    /** When the Failure function is called. */
    enum class FailWhen {
        kAnyReadHasAnError,  // a block that could not be read whole is not delivered
        kNothingWasRead      // frames in front of the damage are delivered
    };

    SoundSource(const SoundHandle& handle,
                const std::string& path,
                const SF_INFO& info,
                Failure failure = Failure(),
                FailWhen fail_when = FailWhen::kAnyReadHasAnError);

    const std::string& name() const override { return path_; }

    const SF_INFO& info() const override { return info_; }

    long long read(double* samples, long long frames) override;

    /** Whether the file holds plain samples, so that it can be read as bytes. */
    bool gives_bytes() const { return codec_.is_plain(); }

    /** Bytes of a frame that read_bytes returns. */
    long long frame_bytes() const { return static_cast<long long>(frame_bytes_); }

    /** As read, but returns the file's bytes without decoding them. */
    long long read_bytes(unsigned char* bytes, long long frames);

    /** Decodes bytes that were read, and overwrites them. May be called from any thread. */
    void decode(unsigned char* bytes, double* samples, long long frames) const;

    /** If a processor is free, the helper thread reads this many frames ahead, no more. */
    void announce(long long frames) override;

    bool seek(long long frame) override;

    long long position() const override { return position_; }

    bool zeroes_past_end() override;

  private:
    long long fetch(unsigned char* bytes, long long frames);
    long long fetch_doubles(double* samples, long long frames);
    long long read_now(double* samples, long long frames);
    template <class Take>
    long long read_ahead(long long frames, const Take& take);
    long long pass_on(long long count, const std::string& problem);
    void note_missing_frames(const std::string& problem) const;
    void keep_error();

    SoundHandle handle_;
    std::string path_;
    SF_INFO info_;
    Failure failure_;
    FailWhen fail_when_;
    SampleCodec codec_;
    std::size_t frame_bytes_;  // of what is fetched: as in the file, doubles where that is encoded
    std::vector<unsigned char> bytes_;
    long long position_ = 0;
    // Of the last fetch, which may run on the helper thread.
    std::string problem_;
    bool problem_is_systems_ = false;
    std::unique_ptr<ReadAhead> ahead_;  // last: its destructor waits
};

/** Goes back to frame 0 for a second pass. Throws std::runtime_error naming the source. */
void rewind(stream::Source& source);

}  // namespace level_engine

using level_engine::rewind;
using level_engine::SoundSource;
