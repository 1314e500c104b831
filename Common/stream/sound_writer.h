#pragma once

#include <functional>
#include <string>
#include <vector>

#include "Common/audio/sample_codec.h"
#include "Common/audio/sound_handle.h"
#include "Common/stream/helper_thread.h"
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
    void write_plain(const double* samples, long long frames);
    void finish_plain();
    void check(long long frames, long long written);

    SoundHandle handle_;
    std::string path_;
    int channels_;
    long long piece_frames_;
    OnFailure on_failure_;
    SampleCodec codec_;
    std::vector<unsigned char> bytes_[2];  // one is filled while the other is written
    int filling_ = 0;
    long long plain_frames_ = 0;  // what is on its way, and how much of it arrived
    long long plain_written_ = 0;
    long long frames_ = 0;
    stream::HelperThread::Task writing_;  // the last member: it waits before the others go
};
