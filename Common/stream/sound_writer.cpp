#include "Common/stream/sound_writer.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <boost/smart_ptr/make_unique.hpp>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <limits>
#include <new>
#include <string>
#include <utility>

#include "Common/audio/scratch_sounds.h"
#include "Common/files/descriptor.h"
#include "Common/reporting/write_error.h"
#include "Common/stream/write_taps.h"

namespace level_engine {

namespace {

constexpr long long kTapSamples = 65536;

/** The file took less than it was given: ends the work on it. */
struct ShortWrite {
    int error;  // errno
};

/** A header that was never brought up to date is put right for the reading; the log tells. */
bool was_left_open(SNDFILE* file) {
    char log[2048];
    const int length = sf_command(file, SFC_GET_LOG_INFO, log, sizeof log);
    return std::string(log, static_cast<std::size_t>(std::max(length, 0)))
               .find("closed properly") != std::string::npos;
}

/** Encodings that give back as many frames as they were given; others fill up their last block. */
bool keeps_length(int format) {
    const int encoding = format & SF_FORMAT_SUBMASK;
    return linear_sample_bytes(format) != 0 || encoding == SF_FORMAT_ULAW ||
           encoding == SF_FORMAT_ALAW;
}

/**
 * Checks the size field of RIFF and FORM (bytes that follow it). libsndfile writes a wrong size
 * when it cannot determine the file's size on closing, and does not check it on reading. Files
 * above 4 GB have other containers.
 */
bool tells_its_size(int file, off_t begin, off_t bytes) {
    constexpr std::size_t kHeadBytes = 8;
    unsigned char head[kHeadBytes];
    if (::pread(file, head, kHeadBytes, begin) != static_cast<ssize_t>(kHeadBytes)) {
        return false;
    }
    const std::string name(head, head + 4);
    const bool is_little = name == "RIFF";
    if ((!is_little && name != "RIFX" && name != "FORM") ||
        bytes > std::numeric_limits<std::uint32_t>::max()) {
        return true;
    }
    std::uint32_t size = 0;
    for (std::size_t i = 0; i < 4; ++i) {
        size = size << 8 | head[is_little ? kHeadBytes - 1 - i : 4 + i];
    }
    return static_cast<off_t>(size) + static_cast<off_t>(kHeadBytes) == bytes;
}

/**
 * libsndfile does not report a header that it failed to update on closing, so this reads the length
 * back from the file on disk. A device or a pipe cannot be read back, and in some formats
 * libsndfile does not open a file without frames. A header written to the file's end instead of its
 * start adds more than one frame; one frame too many is a pad byte that libsndfile reads as one.
 */
bool is_whole(const std::string& path, long long frames) {
    const int held = ScratchSounds::of_this_thread().open_for_reading(path);
    struct stat status = {};
    if (frames == 0 ||
        (held == -1 && (::stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)))) {
        return true;
    }
    const Descriptor bytes = held != -1 ? Descriptor(held) : Descriptor(path, O_RDONLY | O_CLOEXEC);
    const off_t begin = held != -1 ? ::lseek(held, 0, SEEK_CUR) : 0;  // of a file in another
    SF_INFO info;
    const SoundHandle file = open_sound_for_reading(path, info);
    return bytes.is_open() && ::fstat(bytes.get(), &status) == 0 && file && info.frames >= frames &&
           (info.frames <= frames + 1 || !keeps_length(info.format)) &&
           !was_left_open(file.get()) && tells_its_size(bytes.get(), begin, status.st_size - begin);
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
      codec_(SampleCodec::of(handle.get())),
      pieces_(stream::HelperThread::is_used() ? stream::kPieces : 1),
      lane_([this] { write_piece(); }, stream::kPieces) {
    if (codec_.is_plain()) {
        frame_bytes_ = static_cast<long long>(codec_.bytes()) * channels;
        piece_capacity_ = std::max(1LL, stream::kPieceBytes / frame_bytes_);
        tap_ = stream::WriteTaps::of_this_thread().detach(path);
    }
}

/**
 * Fills the next piece while earlier ones are being written. fill(bytes, first, some) writes some
 * frames to bytes, from frame first of this call on.
 */
template <class Fill>
void SoundWriter::fill_pieces(long long frames, const Fill& fill) {
    taken_ += frames;
    for (long long done = 0; done < frames;) {
        Piece& filling = piece(filling_);
        const long long some = std::min(frames - done, piece_capacity_ - filling.frames);
        if (!filling.bytes) {
            filling.bytes = boost::make_unique_noinit<unsigned char[]>(
                static_cast<std::size_t>(piece_capacity_ * frame_bytes_));
        }
        fill(filling.bytes.get() + filling.frames * frame_bytes_, done, some);
        filling.frames += some;
        done += some;
        if (filling.frames == piece_capacity_) {
            hand_over_piece();
        }
    }
}

void SoundWriter::process(double* samples, long long frames) {
    if (codec_.is_plain()) {
        fill_pieces(frames, [&](unsigned char* bytes, long long first, long long some) {
            encode(samples + first * channels_, bytes, some);
        });
        return;
    }
    for (long long done = 0; done < frames; done += piece_frames_) {
        write(samples + done * channels_, std::min(piece_frames_, frames - done));
    }
}

void SoundWriter::encode(const double* samples, unsigned char* bytes, long long frames) const {
    codec_.encode(samples, bytes, static_cast<std::size_t>(frames * channels_));
}

void SoundWriter::take_bytes(const unsigned char* bytes, long long frames) {
    fill_pieces(frames, [&](unsigned char* to, long long first, long long some) {
        std::memcpy(to, bytes + first * frame_bytes_,
                    static_cast<std::size_t>(some * frame_bytes_));
    });
}

void SoundWriter::write(const double* samples, long long frames) {
    errno = 0;
    const long long written = sf_writef_double(handle_.get(), samples, frames);
    if (written != frames) {
        reporting::note_write_error(errno);
    }
    check(frames, written);
    frames_ += frames;
}

void SoundWriter::check(long long frames, long long written) {
    if (written != frames) {
        on_failure_(
            {handle_, path_, frames * channels_, written * channels_, sf_strerror(handle_.get())});
    }
}

void SoundWriter::hand_over_piece() {
    lane_.add();
    ++filling_;
    finish_pieces(filling_ - static_cast<long long>(pieces_.size()) + 1);
}

/** The lane's work. */
void SoundWriter::write_piece() {
    Piece& writing = piece(writing_++);
    errno = 0;
    writing.written =
        sf_write_raw(handle_.get(), writing.bytes.get(), writing.frames * frame_bytes_) /
        frame_bytes_;
    if (writing.written < writing.frames) {
        throw ShortWrite{errno};  // no piece may follow
    }
    if (tap_) {
        try {
            feed_tap(writing);
        } catch (const std::bad_alloc&) {
            tap_.reset();  // a tap without finish counts as incomplete; the file is written anyway
        }
    }
}

/** Decodes the piece, whose bytes have been written, and passes it to the tap. */
void SoundWriter::feed_tap(Piece& piece) {
    const long long block_frames = kTapSamples / channels_;
    if (!tap_block_) {
        tap_block_ = boost::make_unique_noinit<double[]>(kTapSamples);
    }
    for (long long done = 0; done < piece.frames; done += block_frames) {
        const long long frames = std::min(block_frames, piece.frames - done);
        codec_.decode(piece.bytes.get() + done * frame_bytes_, tap_block_.get(),
                      static_cast<std::size_t>(frames * channels_));
        tap_->process(tap_block_.get(), frames);
    }
}

/** Waits until the first count pieces are written, and frees their buffers for reuse. */
void SoundWriter::finish_pieces(long long count) {
    for (; finished_ < count; ++finished_) {
        Piece& oldest = piece(finished_);
        try {
            lane_.finish(finished_ + 1);
        } catch (const ShortWrite& failure) {
            reporting::note_write_error(failure.error);
            fail_piece(frames_ + oldest.written);
        }
        frames_ += oldest.frames;
        oldest.frames = 0;
    }
}

/** Reports the failure as if frames had been written in groups of piece_frames. */
void SoundWriter::fail_piece(long long written) {
    const long long begin = written - written % piece_frames_;
    check(std::min(piece_frames_, taken_ - begin), written - begin);
}

void SoundWriter::finish() {
    if (piece(filling_).frames > 0) {
        hand_over_piece();
    }
    finish_pieces(filling_);
    errno = 0;
    const int error = close_sound(handle_);
    const int system_error = errno;
    const long long samples = frames_ * channels_;
    if (error != 0) {
        reporting::note_write_error(system_error);
        on_failure_({handle_, path_, samples, samples, sf_error_number(error)});
    } else if (!is_whole(path_, frames_)) {
        reporting::note_write_error(system_error);
        on_failure_({handle_, path_, samples, samples, "the file on disk is not whole"});
    }
    if (tap_) {
        tap_->finish();
    }
}

}  // namespace level_engine
