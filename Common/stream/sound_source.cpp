#include "Common/stream/sound_source.h"

#include <algorithm>
#include <limits>
#include <stdexcept>
#include <utility>
#include <vector>

#include "Common/reporting/failure.h"

namespace {

[[noreturn]] void fail_read(const std::string& text) {
    reporting::note_failure(reporting::Kind::kSystem, text);
    throw std::runtime_error(text);
}

}  // namespace

SoundSource::SoundSource(const SoundHandle& handle,
                         const std::string& path,
                         const SF_INFO& info,
                         Failure failure)
    : handle_(handle),
      path_(path),
      info_(info),
      failure_(std::move(failure)),
      codec_(SampleCodec::of(handle.get())) {}

long long SoundSource::read(double* samples, long long frames) {
    const long long count = read_frames(samples, frames);
    // A device that fails looks like the end of the file but for this.
    if (sf_error(handle_.get()) != SF_ERR_NO_ERROR) {
        if (failure_) {
            failure_(handle_, path_);
        }
        fail_read(path_ + ": cannot be read from frame " + std::to_string(position_ + count) +
                  " on: " + sf_strerror(handle_.get()));
    }
    position_ += count;
    return count;
}

/** In one go where the samples are plain: the library would fetch them 8 KB at a time. */
long long SoundSource::read_frames(double* samples, long long frames) {
    if (!codec_.is_plain()) {
        return sf_readf_double(handle_.get(), samples, frames);
    }
    const std::size_t channels = static_cast<std::size_t>(info_.channels);
    const std::size_t frame_bytes = channels * codec_.bytes();
    // Grows to the largest block that is asked for, once.
    bytes_.resize(std::max(bytes_.size(), static_cast<std::size_t>(frames) * frame_bytes));
    // A file that was cut off in the middle of a frame gives the whole ones before it.
    const long long read =
        sf_read_raw(handle_.get(), bytes_.data(), frames * static_cast<long long>(frame_bytes)) /
        static_cast<long long>(frame_bytes);
    codec_.decode(bytes_.data(), samples, static_cast<std::size_t>(read) * channels);
    return read;
}

bool SoundSource::seek(long long frame) {
    if (sf_seek(handle_.get(), frame, SEEK_SET) == -1) {
        return false;
    }
    position_ = frame;
    return true;
}

/**
 * The library zeroes the rest of a buffer when it finds more bytes behind the recording's last
 * frame, a pad byte or a chunk, which it reads as samples and then takes back; at the end of the
 * file itself it leaves the rest alone. One frame too many shows which it is.
 */
bool SoundSource::zeroes_past_end() {
    const std::size_t channels = static_cast<std::size_t>(info_.channels);
    std::vector<double> frames(2 * channels, std::numeric_limits<double>::max());
    if (info_.frames == 0 || !seek(info_.frames - 1)) {
        return false;
    }
    return sf_readf_double(handle_.get(), frames.data(), 2) == 1 && frames[channels] == 0.0;
}

void rewind(stream::Source& source) {
    if (!source.seek(0)) {
        fail_read(source.name() + ": cannot be read a second time");
    }
}
