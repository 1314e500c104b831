#pragma once

#include <sndfile.h>

#include <string>

#include "Common/audio/sound_handle.h"

/** Frames that a look through a whole file reads at a time. */
constexpr long long kLookFrames = 8192;

/**
 * An audio file with a logical span of frames, start (included) to end (excluded), that every read,
 * seek and tell respects. Samples are interleaved; with normalisation on, full scale is -1.0
 * to 1.0. Copies share the file, which is closed with the last copy.
 *
 * Every failure is a std::runtime_error that names the file. A read that comes up short is none:
 * the caller sees the smaller count.
 */
class SoundFile {
  public:
    /** Opens for reading the span in to out; -1 means the file's own start or end. */
    SoundFile(const std::string& path,
              const std::string& auxName,
              long long aux1,
              long long aux2,
              long long in,
              long long out,
              bool normalize);

    /** Opens the whole file for reading. */
    SoundFile(const std::string& path, bool normalize);

    /** Opens for writing in the other file's format. */
    SoundFile(const std::string& path, SoundFile& like);

    /** Opens for writing in the given format. */
    SoundFile(const std::string& path, SF_INFO* info, bool normalize);

    void OpenRead();
    void OpenWrite();

    /**
     * Sets the span, and the library's position to its start when in is not -1. A start that cannot
     * be reached is an error with the text of Seek.
     */
    void AdjustInOut(long long in, long long out);

    void CopyInfo(SoundFile& other);
    void GetInfo(SF_INFO* info) const;

    /** Frames of the span. */
    long long GetFrames() const;

    /** Bits of an integer sample: negative when signed, positive when unsigned, 0 for other kinds.
     */
    int GetBitDepth() const;

    /** The largest sample value of the integer encoding, 0 for other kinds. */
    int GetMaxValue() const;

    void SetNormalization(bool normalize);

    /** The position in frames from the span's start. */
    long long Tell();

    /**
     * Seeks by frames. For SEEK_SET and SEEK_END the span's start is added to the offset; the
     * target must lie inside the span, its end excluded. Returns the position in the file's own
     * numbering.
     */
    long long Seek(long long offset, int whence);

    /** Seeks to the span's start; true when that is the file's frame 0. */
    bool Rewind();

    long long ReadDouble(double* samples, long long items);
    long long ReadDoubleFrames(double* samples, long long frames);
    long long ReadFloatFrames(float* samples, long long frames);

    // These three limit the count by the distance of the span-relative position from the end in
    // file numbering, so in a span that starts late they may read on past its end.
    long long ReadFloat(float* samples, long long items);
    long long ReadInt(int* samples, long long items);
    long long ReadShort(short* samples, long long items);

    // Each returns the count asked for; fewer written is an error.
    long long WriteDouble(const double* samples, long long items);
    long long WriteFloat(const float* samples, long long items);
    long long WriteInt(const int* samples, long long items);
    long long WriteShort(const short* samples, long long items);
    long long WriteDoubleFrames(const double* samples, long long frames);
    long long WriteFloatFrames(const float* samples, long long frames);
    long long WriteIntFrames(const int* samples, long long frames);
    long long WriteShortFrames(const short* samples, long long frames);

    /** The broadcast-extension chunk; false when the file has none. */
    bool ReadBroadcastInfo(SF_BROADCAST_INFO* info);

    /** Must come before the first sample is written. Returns the library's answer. */
    int WriteBroadcastInfo(SF_BROADCAST_INFO& info);

    static void GetSndFileVersion(char* buffer, int size);
    static std::string GetSndFileStrError(SNDFILE* handle);

    /** What the full read constructor was given; kept for the caller. */
    long long aux1() const { return aux1_; }

    long long aux2() const { return aux2_; }

    const std::string& auxName() const { return auxName_; }

    const SoundHandle& handle() const { return handle_; }

    const std::string& path() const { return path_; }

  private:
    long long FramesLeft();
    long long ItemsLeft();
    long long SeekInFile(long long frame, int whence);
    [[noreturn]] void FailSeek(long long offset, long long position, int error) const;
    long long CheckWritten(long long written, long long asked);

    SoundHandle handle_;
    long long start_ = 0;
    long long aux1_ = -1;
    std::string auxName_;
    long long aux2_ = -1;
    bool normalize_ = true;
    long long end_ = 0;
    std::string path_;
    SF_INFO info_{};
};
