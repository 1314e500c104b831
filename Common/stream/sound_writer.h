#pragma once

#include <functional>
#include <string>
#include <vector>

#include "Common/audio/sample_codec.h"
#include "Common/audio/sound_handle.h"
#include "Common/stream/stream.h"

/** A sound file that did not take what was written to it. */
struct WriteFailure {
    SoundHandle handle;  // null once the file is closed
    std::string path;
    long long expected;  // samples
    long long written;
    std::string reason;  // the library's
};

/**
 * Ends a chain in a sound file. The end of the recording closes the file; a write, a close or a
 * file on disk that falls short of what was taken is an error.
 */
class SoundWriter : public stream::Receiver {
  public:
    /** Throws what a step throws. */
    using OnFailure = std::function<void(const WriteFailure&)>;

    /**
     * piece_frames: how many frames are written at a time, cut anew from what each call brings. An
     * encoder of a lossy format gives other bits for other pieces; plain samples go in one piece.
     * No other owner may use the handle after the end.
     */
    SoundWriter(const SoundHandle& handle,
                const std::string& path,
                int channels,
                long long piece_frames,
                OnFailure on_failure);

    void take(double* samples, long long frames) override;
    void end() override;

  private:
    void write(const double* samples, long long frames);
    long long write_frames(const double* samples, long long frames);

    SoundHandle handle_;
    std::string path_;
    int channels_;
    long long piece_frames_;
    OnFailure on_failure_;
    SampleCodec codec_;
    std::vector<unsigned char> bytes_;
    long long frames_ = 0;
};
