#include "Common/audio/frame_file.h"

#include <cstddef>

#include "Common/reporting/log.h"

namespace {
constexpr const char* kSource = "Common/apply_gains/ag_common";

/** Two lines, the library's reason on the second; together they are one cause. */
void log_with_reason(int line, const std::string& text, const std::string& reason) {
    reporting::note_failure(reporting::Kind::kSystem, text + ": " + reason);
    log_msg(kSource, line, text);
    log_msg(kSource, 56, reason);
}
}  // namespace

void incompatible_frames_err::report() const {
    log_failure(kSource, 24, "Program error: Incompatible frames");
}

void sf_err::report() const {
    log_failure(kSource, 43, "Unknown soundfile error");
}

sf_open_err::sf_open_err(const std::string& file)
    : sf_err(SoundHandle()), file_(file), reason_(sound_open_reason()) {}

void sf_open_err::report() const {
    log_failure(kSource, 56, reason_, reporting::Kind::kSystem);
}

void sf_open_input_err::report() const {
    log_with_reason(65, "Error opening " + file_ + " for input", reason_);
}

void sf_open_output_err::report() const {
    log_with_reason(75, "Error opening " + file_ + " for output", reason_);
}

void sf_io_err::report() const {
    log_failure(kSource, 89, reason_, reporting::Kind::kSystem);
}

void sf_read_err::report() const {
    log_with_reason(108, "Error reading from " + file_, reason_);
}

void sf_write_err::report() const {
    log_with_reason(98, "Error writing to " + file_, reason_);
}

InputSoundFile::InputSoundFile(const std::string& path) : path_(path) {
    handle_ = open_sound_for_reading(path_, info_);
    if (!handle_) {
        throw sf_open_input_err(path_);
    }
}

FrameArray InputSoundFile::Read(long long frames) {
    boost::shared_array<double> block(
        new double[static_cast<std::size_t>(frames) * static_cast<std::size_t>(info_.channels)]);
    const long long read = ReadFrames(block.get(), frames);
    return FrameArray(static_cast<int>(read), info_.channels, block);
}

long long InputSoundFile::ReadItems(double* samples, long long items) {
    return Checked(sf_read_double(handle_.get(), samples, items));
}

long long InputSoundFile::ReadFrames(double* samples, long long frames) {
    return Checked(sf_readf_double(handle_.get(), samples, frames));
}

long long InputSoundFile::Checked(long long count) const {
    if (count == 0 && sf_error(handle_.get()) != SF_ERR_NO_ERROR) {
        throw sf_read_err(handle_, path_);
    }
    return count;
}

long long InputSoundFile::Seek(long long frame, int whence) {
    return sf_seek(handle_.get(), frame, whence);
}

OutputSoundFile::OutputSoundFile(const std::string& path, int format, int channels, int samplerate)
    : path_(path) {
    init(format, channels, samplerate);
}

OutputSoundFile::OutputSoundFile(const std::string& path, const InputSoundFile& like)
    : OutputSoundFile(path, like.info().format, like.info().channels, like.info().samplerate) {}

void OutputSoundFile::init(int format, int channels, int samplerate) {
    info_ = SF_INFO{};
    info_.format = format;
    info_.channels = channels;
    info_.samplerate = samplerate;
    handle_ = open_sound_for_writing(path_, info_);
    if (!handle_) {
        throw sf_open_output_err(path_);
    }
}

long long OutputSoundFile::Write(const FrameArray& frames) {
    if (frames.channels != info_.channels) {
        throw incompatible_frames_err();
    }
    return WriteFrames(frames.samples, frames.frames);
}

long long OutputSoundFile::WriteItems(const double* samples, long long items) {
    return Checked(sf_write_double(handle_.get(), samples, items), items);
}

long long OutputSoundFile::WriteFrames(const double* samples, long long frames) {
    return Checked(sf_writef_double(handle_.get(), samples, frames), frames);
}

long long OutputSoundFile::Checked(long long written, long long asked) const {
    if (written != asked) {
        throw sf_write_err(handle_, path_);
    }
    return written;
}
