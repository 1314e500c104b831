#include "Common/audio/SoundFile.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>

#include "Common/reporting/failure.h"

namespace {

/** An integer encoding. The sign of the depth tells whether the samples have one: -16, but 8. */
struct Encoding {
    int subtype;
    int bit_depth;
    int max_value;
};

constexpr Encoding kEncodings[] = {
    {SF_FORMAT_PCM_S8, -8, 127},      {SF_FORMAT_PCM_16, -16, 32767},
    {SF_FORMAT_PCM_24, -24, 8388607}, {SF_FORMAT_PCM_32, -32, 2147483647},
    {SF_FORMAT_PCM_U8, 8, 255},
};

Encoding encoding_of(int format) {
    for (const Encoding& encoding : kEncodings) {
        if (encoding.subtype == (format & SF_FORMAT_SUBMASK)) {
            return encoding;
        }
    }
    return {0, 0, 0};
}

/** 1200000 as "1,200,000". */
std::string with_commas(long long number) {
    std::string digits = std::to_string(number);
    const std::size_t sign = number < 0 ? 1 : 0;
    for (std::size_t i = digits.size(); i > sign + 3;) {
        i -= 3;
        digits.insert(i, ",");
    }
    return digits;
}

// The structure with a coding history of 256 bytes, as the library lays it out.
constexpr int kBroadcastInfoBytes = 864;
static_assert(sizeof(SF_BROADCAST_INFO) >= kBroadcastInfoBytes,
              "broadcast chunk without its history");

}  // namespace

SoundFile::SoundFile(const std::string& path,
                     const std::string& auxName,
                     long long aux1,
                     long long aux2,
                     long long in,
                     long long out,
                     bool normalize)
    : aux1_(aux1), auxName_(auxName), aux2_(aux2), normalize_(normalize), path_(path) {
    OpenRead();
    AdjustInOut(in, out);
}

SoundFile::SoundFile(const std::string& path, bool normalize) : normalize_(normalize), path_(path) {
    OpenRead();
    end_ = info_.frames;
}

SoundFile::SoundFile(const std::string& path, SoundFile& like) : path_(path) {
    CopyInfo(like);
    OpenWrite();
    end_ = info_.frames;
}

SoundFile::SoundFile(const std::string& path, SF_INFO* info, bool normalize)
    : normalize_(normalize), path_(path), info_(*info) {
    OpenWrite();
    end_ = info_.frames;
}

void SoundFile::OpenRead() {
    handle_ = open_sound_for_reading(path_, info_);
    if (!handle_) {
        throw std::runtime_error("Error opening sound file: " + path_ +
                                 "\nReason: " + sound_open_reason());
    }
    SetNormalization(normalize_);
}

void SoundFile::OpenWrite() {
    handle_ = open_sound_for_writing(path_, info_);
    if (!handle_) {
        reporting::note_failure(reporting::Kind::kSystem, path_ + ": " + sound_open_reason());
        throw std::runtime_error("error opening sound file \"" + path_ + "\"");
    }
    SetNormalization(normalize_);
}

void SoundFile::AdjustInOut(long long in, long long out) {
    start_ = in == -1 ? 0 : in;
    end_ = out != -1 && out < info_.frames ? out : info_.frames;
    if (in != -1) {
        SeekInFile(in, SEEK_SET);
    }
}

void SoundFile::CopyInfo(SoundFile& other) {
    info_ = other.info_;
    normalize_ = other.normalize_;
}

void SoundFile::GetInfo(SF_INFO* info) const {
    *info = info_;
}

long long SoundFile::GetFrames() const {
    return end_ - start_;
}

int SoundFile::GetBitDepth() const {
    return encoding_of(info_.format).bit_depth;
}

int SoundFile::GetMaxValue() const {
    return encoding_of(info_.format).max_value;
}

void SoundFile::SetNormalization(bool normalize) {
    const int value = normalize ? SF_TRUE : SF_FALSE;
    sf_command(handle_.get(), SFC_SET_NORM_DOUBLE, nullptr, value);
    sf_command(handle_.get(), SFC_SET_NORM_FLOAT, nullptr, value);
}

long long SoundFile::Tell() {
    const long long position = sf_seek(handle_.get(), 0, SEEK_CUR);
    if (position == -1) {
        throw std::runtime_error("###ERROR### in SoundFile::Tell in file " + path_);
    }
    return position - start_;
}

long long SoundFile::Seek(long long offset, int whence) {
    // An offset from the end moves by the start, too. That is odd, and it is kept.
    if (whence != SEEK_CUR) {
        offset += start_;
    }
    const long long position = SeekInFile(offset, whence);
    // The end itself is outside: nothing can be read there.
    if (start_ <= position && position < end_) {
        return position;
    }
    FailSeek(offset, position, 0);
}

/** The library's seek. Throws when it fails; the span's ends mean nothing to it. */
long long SoundFile::SeekInFile(long long frame, int whence) {
    // libsndfile does not set errno when it rejects a frame itself: it then stays 0.
    errno = 0;
    const long long position = sf_seek(handle_.get(), frame, whence);
    if (position == -1) {
        FailSeek(frame, position, errno);
    }
    return position;
}

void SoundFile::FailSeek(long long offset, long long position, int error) const {
    std::string message = "###ERROR### seeking to " + with_commas(offset) + " in file " + path_;
    if (position >= end_) {
        message += "\n Attempt to seek past logical file end at " + with_commas(end_);
    }
    if (position < start_) {
        message += "\n Attempt to seek to before logical file start at " + with_commas(start_);
    }
    if (position == -1) {
        message += "\n Errno=" + std::to_string(error) + " (" +
                   std::string(std::strerror(error)).substr(0, 256) + ")";
    }
    throw std::runtime_error(message);
}

bool SoundFile::Rewind() {
    return Seek(0, SEEK_SET) == 0;
}

long long SoundFile::FramesLeft() {
    return end_ - start_ - Tell();
}

long long SoundFile::ItemsLeft() {
    return info_.channels * (end_ - Tell());
}

long long SoundFile::ReadDouble(double* samples, long long items) {
    // In the file's numbering, unlike ReadFloat, ReadInt and ReadShort: see the header.
    const long long position = sf_seek(handle_.get(), 0, SEEK_CUR);
    return sf_read_double(handle_.get(), samples,
                          std::min<long long>(items, info_.channels * (end_ - position)));
}

long long SoundFile::ReadDoubleFrames(double* samples, long long frames) {
    return sf_readf_double(handle_.get(), samples, std::min(frames, FramesLeft()));
}

long long SoundFile::ReadFloatFrames(float* samples, long long frames) {
    return sf_readf_float(handle_.get(), samples, std::min(frames, FramesLeft()));
}

long long SoundFile::ReadFloat(float* samples, long long items) {
    return sf_read_float(handle_.get(), samples, end_ == -1 ? items : std::min(items, ItemsLeft()));
}

long long SoundFile::ReadInt(int* samples, long long items) {
    return sf_read_int(handle_.get(), samples, end_ == -1 ? items : std::min(items, ItemsLeft()));
}

long long SoundFile::ReadShort(short* samples, long long items) {
    return sf_read_short(handle_.get(), samples, end_ == -1 ? items : std::min(items, ItemsLeft()));
}

long long SoundFile::CheckWritten(long long written, long long asked) {
    if (written != asked) {
        reporting::note_failure(reporting::Kind::kSystem,
                                path_ + ": " + GetSndFileStrError(handle_.get()));
        throw std::runtime_error("error writing to " + path_);
    }
    return asked;
}

long long SoundFile::WriteDouble(const double* samples, long long items) {
    return CheckWritten(sf_write_double(handle_.get(), samples, items), items);
}

long long SoundFile::WriteFloat(const float* samples, long long items) {
    return CheckWritten(sf_write_float(handle_.get(), samples, items), items);
}

long long SoundFile::WriteInt(const int* samples, long long items) {
    return CheckWritten(sf_write_int(handle_.get(), samples, items), items);
}

long long SoundFile::WriteShort(const short* samples, long long items) {
    return CheckWritten(sf_write_short(handle_.get(), samples, items), items);
}

long long SoundFile::WriteDoubleFrames(const double* samples, long long frames) {
    return CheckWritten(sf_writef_double(handle_.get(), samples, frames), frames);
}

long long SoundFile::WriteFloatFrames(const float* samples, long long frames) {
    return CheckWritten(sf_writef_float(handle_.get(), samples, frames), frames);
}

long long SoundFile::WriteIntFrames(const int* samples, long long frames) {
    return CheckWritten(sf_writef_int(handle_.get(), samples, frames), frames);
}

long long SoundFile::WriteShortFrames(const short* samples, long long frames) {
    return CheckWritten(sf_writef_short(handle_.get(), samples, frames), frames);
}

bool SoundFile::ReadBroadcastInfo(SF_BROADCAST_INFO* info) {
    // A chunk without history is shorter than this; the rest must not keep old contents.
    std::memset(info, 0, kBroadcastInfoBytes);
    return sf_command(handle_.get(), SFC_GET_BROADCAST_INFO, info, kBroadcastInfoBytes) == SF_TRUE;
}

int SoundFile::WriteBroadcastInfo(SF_BROADCAST_INFO& info) {
    return sf_command(handle_.get(), SFC_SET_BROADCAST_INFO, &info, kBroadcastInfoBytes);
}

void SoundFile::GetSndFileVersion(char* buffer, int size) {
    sf_command(nullptr, SFC_GET_LIB_VERSION, buffer, size);
}

std::string SoundFile::GetSndFileStrError(SNDFILE* handle) {
    return sf_strerror(handle);
}
