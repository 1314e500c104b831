#include "Common/stream/sound_writer.h"

#include <sys/stat.h>

#include <algorithm>
#include <string>
#include <utility>

namespace {

/** A header that was never brought up to date is put right for the reading; the log tells. */
bool was_left_open(SNDFILE* file) {
    char log[2048];
    const int length = sf_command(file, SFC_GET_LOG_INFO, log, sizeof log);
    return std::string(log, static_cast<std::size_t>(std::max(length, 0)))
               .find("closed properly") != std::string::npos;
}

/** Encodings that give back as many frames as they were given; others fill up their last block. */
bool keeps_length(int format) {
    switch (format & SF_FORMAT_SUBMASK) {
        case SF_FORMAT_PCM_S8:
        case SF_FORMAT_PCM_U8:
        case SF_FORMAT_PCM_16:
        case SF_FORMAT_PCM_24:
        case SF_FORMAT_PCM_32:
        case SF_FORMAT_FLOAT:
        case SF_FORMAT_DOUBLE:
        case SF_FORMAT_ULAW:
        case SF_FORMAT_ALAW:
            return true;
        default:
            return false;
    }
}

/**
 * The library says nothing of a header that it could not bring up to date when closing: the file on
 * disk is asked how long it is. A device or a pipe has nothing to ask, and some formats without a
 * frame are no file that the library would open. A header that went to the file's end in place of
 * its start makes more than a frame too many; one too many is a pad byte that the library reads as
 * such.
 */
bool is_whole(const std::string& path, long long frames) {
    struct stat status = {};
    if (frames == 0 || ::stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) {
        return true;
    }
    SF_INFO info;
    const SoundHandle file = open_sound_for_reading(path, info);
    return file && info.frames >= frames &&
           (info.frames <= frames + 1 || !keeps_length(info.format)) && !was_left_open(file.get());
}

}  // namespace

SoundWriter::SoundWriter(const SoundHandle& handle,
                         const std::string& path,
                         int channels,
                         long long piece_frames,
                         OnFailure on_failure)
    : handle_(handle),
      path_(path),
      channels_(channels),
      piece_frames_(piece_frames),
      on_failure_(std::move(on_failure)),
      codec_(SampleCodec::of(handle.get())) {}

void SoundWriter::take(double* samples, long long frames) {
    if (codec_.is_plain()) {
        write_plain(samples, frames);
        return;
    }
    for (long long done = 0; done < frames; done += piece_frames_) {
        write(samples + done * channels_, std::min(piece_frames_, frames - done));
    }
}

void SoundWriter::write(const double* samples, long long frames) {
    check(frames, sf_writef_double(handle_.get(), samples, frames));
}

void SoundWriter::check(long long frames, long long written) {
    if (written != frames) {
        on_failure_(
            {handle_, path_, frames * channels_, written * channels_, sf_strerror(handle_.get())});
    }
    frames_ += written;
}

/** The bytes of one block are on their way to the file while the next block is made. */
void SoundWriter::write_plain(const double* samples, long long frames) {
    std::vector<unsigned char>& bytes = bytes_[filling_];
    const std::size_t count = static_cast<std::size_t>(frames * channels_);
    bytes.resize(std::max(bytes.size(), count * codec_.bytes()));
    codec_.encode(samples, bytes.data(), count);
    finish_plain();
    filling_ = 1 - filling_;
    plain_frames_ = frames;
    writing_.start([this, &bytes, frames] {
        const long long frame_bytes = static_cast<long long>(codec_.bytes()) * channels_;
        plain_written_ =
            sf_write_raw(handle_.get(), bytes.data(), frames * frame_bytes) / frame_bytes;
    });
}

void SoundWriter::finish_plain() {
    writing_.wait();
    check(std::exchange(plain_frames_, 0), std::exchange(plain_written_, 0));
}

void SoundWriter::end() {
    finish_plain();
    const int error = close_sound(handle_);
    const long long samples = frames_ * channels_;
    if (error != 0) {
        on_failure_({handle_, path_, samples, samples, sf_error_number(error)});
    } else if (!is_whole(path_, frames_)) {
        on_failure_({handle_, path_, samples, samples, "the file on disk is not whole"});
    }
}
