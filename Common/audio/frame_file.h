#pragma once

#include <sndfile.h>

#include <boost/shared_array.hpp>
#include <exception>
#include <string>

#include "Common/audio/sound_handle.h"

/*
 * Reads and writes blocks of frames. The errors form a family of their own that belongs to no step;
 * the driver, which catches std::exception last, calls their report first.
 */

/** Root of the frame files' errors: an error that writes its own message. */
class printable_err : public std::exception {
  public:
    virtual void report() const = 0;
};

/** Frames of another channel count than the file's: a fault of the caller's, not of a file. */
class incompatible_frames_err : public printable_err {
  public:
    void report() const override;
};

class sf_err : public printable_err {
  public:
    explicit sf_err(const SoundHandle& handle) : handle_(handle) {}

    void report() const override;

  protected:
    SoundHandle handle_;
};

/** A file that could not be opened. The library's reason is kept from the moment of the failure. */
class sf_open_err : public sf_err {
  public:
    explicit sf_open_err(const std::string& file);

    void report() const override;

  protected:
    std::string file_;
    std::string reason_;
};

class sf_open_input_err : public sf_open_err {
  public:
    using sf_open_err::sf_open_err;

    void report() const override;
};

class sf_open_output_err : public sf_open_err {
  public:
    using sf_open_err::sf_open_err;

    void report() const override;
};

/** A read or write that failed. The library's reason is kept: the file may be closed by then. */
class sf_io_err : public sf_err {
  public:
    sf_io_err(const SoundHandle& handle, const std::string& file)
        : sf_io_err(handle, file, sf_strerror(handle.get())) {}

    sf_io_err(const SoundHandle& handle, const std::string& file, const std::string& reason)
        : sf_err(handle), file_(file), reason_(reason) {}

    void report() const override;

  protected:
    std::string file_;
    std::string reason_;
};

class sf_read_err : public sf_io_err {
  public:
    using sf_io_err::sf_io_err;

    void report() const override;
};

class sf_write_err : public sf_io_err {
  public:
    using sf_io_err::sf_io_err;

    void report() const override;
};

/** A block of frames, interleaved doubles. Copies share the samples. */
struct FrameArray {
    FrameArray(int frame_count, int channel_count, const boost::shared_array<double>& block)
        : frames(frame_count), channels(channel_count), samples(block.get()), owner(block) {}

    int frames;
    int channels;
    double* samples;
    boost::shared_array<double> owner;
};

/** A sound file open for reading. Throws sf_open_input_err, sf_read_err. */
class InputSoundFile {
  public:
    explicit InputSoundFile(const std::string& path);

    /** The next frames of the file, fewer at its end, none past it. */
    FrameArray Read(long long frames);

    /** Read into the caller's buffer; 0 at the end of the file. */
    long long ReadItems(double* samples, long long items);
    long long ReadFrames(double* samples, long long frames);

    /** The library's seek, as it is: -1 on failure. */
    long long Seek(long long frame, int whence);

    const SF_INFO& info() const { return info_; }

    const std::string& path() const { return path_; }

    const SoundHandle& handle() const { return handle_; }

  private:
    long long Checked(long long count) const;

    std::string path_;
    SoundHandle handle_;
    SF_INFO info_{};
};

/** A sound file open for writing. Throws sf_open_output_err, sf_write_err. */
class OutputSoundFile {
  public:
    OutputSoundFile(const std::string& path, int format, int channels, int samplerate);

    /** With the format, channel count and sample rate of another file. */
    OutputSoundFile(const std::string& path, const InputSoundFile& like);

    void init(int format, int channels, int samplerate);

    /** Throws incompatible_frames_err, before it writes, when the channel counts differ. */
    long long Write(const FrameArray& frames);

    long long WriteItems(const double* samples, long long items);
    long long WriteFrames(const double* samples, long long frames);

    const SF_INFO& info() const { return info_; }

    const SoundHandle& handle() const { return handle_; }

  private:
    long long Checked(long long written, long long asked) const;

    std::string path_;
    SoundHandle handle_;
    SF_INFO info_{};
};
