#include "Common/stream/sound_source.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <new>
#include <stdexcept>
#include <utility>
#include <vector>

#include "Common/reporting/failure.h"

namespace level_engine {

namespace {

[[noreturn]] void fail_read(const std::string& text) {
    reporting::note_failure(reporting::Kind::kSystem, text);
    throw std::runtime_error(text);
}

}  // namespace

SoundSource::SoundSource(const SoundHandle& handle,
                         const std::string& path,
                         const SF_INFO& info,
                         Failure failure,
                         FailWhen fail_when)
    : handle_(handle),
      path_(path),
      info_(info),
      failure_(std::move(failure)),
      fail_when_(fail_when),
      codec_(SampleCodec::of(handle.get())),
      frame_bytes_(static_cast<std::size_t>(info.channels) *
                   (codec_.is_plain() ? codec_.bytes() : sizeof(double))) {}

/** Calls take with spans of frames in total, and the number of frames before each span. */
template <class Take>
long long SoundSource::read_ahead(long long frames, const Take& take) {
    long long done = 0;
    while (done < frames) {
        const ReadAhead::Span span = ahead_->next(frames - done);
        if (span.frames == 0) {
            break;
        }
        take(span, done);
        done += span.frames;
    }
    return done;
}

long long SoundSource::read(double* samples, long long frames) {
    if (!ahead_ || ahead_->is_used_up()) {
        const long long count = read_now(samples, frames);
        return pass_on(count, problem_);
    }
    const long long count = read_ahead(frames, [&](const ReadAhead::Span& span, long long before) {
        decode(span.bytes, samples + before * info_.channels, span.frames);
    });
    return pass_on(count, ahead_->problem());
}

long long SoundSource::read_bytes(unsigned char* bytes, long long frames) {
    if (!ahead_ || ahead_->is_used_up()) {
        const long long count = fetch(bytes, frames);
        return pass_on(count, problem_);
    }
    const long long count = read_ahead(frames, [&](const ReadAhead::Span& span, long long before) {
        std::memcpy(bytes + static_cast<std::size_t>(before) * frame_bytes_, span.bytes,
                    static_cast<std::size_t>(span.frames) * frame_bytes_);
    });
    return pass_on(count, ahead_->problem());
}

/** Counts the frames read. A failing device looks like the end of the file, except for problem. */
long long SoundSource::pass_on(long long count, const std::string& problem) {
    if (!problem.empty() && failure_ &&
        (fail_when_ == FailWhen::kAnyReadHasAnError || count == 0)) {
        failure_(handle_, path_);
    }
    position_ += count;
    // What is not thrown has to be noted: the frames in front of a read error look like a short
    // file.
    if (!problem.empty() || (!failure_ && count == 0)) {
        note_missing_frames(problem);
    }
    return count;
}

void SoundSource::note_missing_frames(const std::string& problem) const {
    if (problem.empty() && position_ >= info_.frames) {
        return;
    }
    const bool promises = promises_length(info_);
    reporting::Defect defect;
    defect.promised = info_.frames;
    defect.read = position_;
    if (problem.empty() && !promises) {
        reporting::note_defect(defect);  // only the counts: the header gives an estimate
        return;
    }
    defect.kind = reporting::DefectKind::kFramesMissing;
    defect.text = problem.empty()
                      ? path_ + ": ends after " + std::to_string(position_) + " of " +
                            std::to_string(info_.frames) + " frames; the file may be damaged"
                      : path_ + ": cannot be read from frame " + std::to_string(position_) +
                            " on: " + problem;
    defect.is_systems = problem_is_systems_;
    defect.library_text = problem;
    reporting::note_defect(defect);
    if (!problem.empty()) {
        reporting::note_failure(reporting::Kind::kSystem, defect.text);
    }
}

void SoundSource::announce(long long frames) {
    const long long expected = std::min(frames, info_.frames - position_);
    if (ReadAhead::is_worthwhile(frame_bytes_, expected) && (!ahead_ || ahead_->is_used_up())) {
        ahead_.reset();  // what it holds is not needed beside the next one's
        try {
            ahead_ = std::make_unique<ReadAhead>(
                [this](unsigned char* bytes, long long some) {
                    const long long count = fetch(bytes, some);
                    return ReadAhead::ReadResult{count, problem_};
                },
                frame_bytes_, frames);
        } catch (const std::bad_alloc&) {
            ahead_.reset();  // without its buffers every read waits for the file
        }
    }
}

/** Keeps the first error of a fetch: the library forgets it with the next call. */
void SoundSource::keep_error() {
    const int error = sf_error(handle_.get());
    if (error != SF_ERR_NO_ERROR && problem_.empty()) {
        problem_ = sf_strerror(handle_.get());
        problem_is_systems_ = error == SF_ERR_SYSTEM;
    }
}

/** In one go where the samples are plain: the library would fetch them 8 KB at a time. */
long long SoundSource::fetch(unsigned char* bytes, long long frames) {
    problem_.clear();
    problem_is_systems_ = false;
    if (!codec_.is_plain()) {
        return fetch_doubles(reinterpret_cast<double*>(bytes), frames);
    }
    // A file that was cut off in the middle of a frame gives the whole ones before it.
    const long long frame_bytes = static_cast<long long>(frame_bytes_);
    const long long count = sf_read_raw(handle_.get(), bytes, frames * frame_bytes) / frame_bytes;
    keep_error();
    return count;
}

/** A decoder that stumbles may go on with the next call: only a call that gives nothing ends it. */
long long SoundSource::fetch_doubles(double* samples, long long frames) {
    const bool goes_on = !failure_ || fail_when_ == FailWhen::kNothingWasRead;
    long long done = 0;
    for (bool more = true; more;) {
        const long long count =
            sf_readf_double(handle_.get(), samples + done * info_.channels, frames - done);
        done += count;
        more = goes_on && count > 0 && done < frames && sf_error(handle_.get()) != SF_ERR_NO_ERROR;
        keep_error();
    }
    return done;
}

void SoundSource::decode(unsigned char* bytes, double* samples, long long frames) const {
    const std::size_t count = static_cast<std::size_t>(frames * info_.channels);
    if (codec_.is_plain()) {
        codec_.decode(bytes, samples, count);
    } else {
        std::memcpy(samples, bytes, count * sizeof *samples);
    }
}

long long SoundSource::read_now(double* samples, long long frames) {
    if (!codec_.is_plain()) {
        return fetch(reinterpret_cast<unsigned char*>(samples), frames);
    }
    // Grows to the largest block that is asked for, once.
    bytes_.resize(std::max(bytes_.size(), static_cast<std::size_t>(frames) * frame_bytes_));
    const long long count = fetch(bytes_.data(), frames);
    decode(bytes_.data(), samples, count);
    return count;
}

bool SoundSource::seek(long long frame) {
    ahead_.reset();
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

}  // namespace level_engine
