#include "Common/audio/sound_handle.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <mutex>

#include "Common/audio/sample_codec.h"
#include "Common/audio/scratch_sounds.h"
#include "Common/reporting/write_error.h"

namespace level_engine {

namespace {

thread_local std::string open_reason;
thread_local std::string write_reason;

/**
 * Opening succeeds, too, where a part of the header could not be read or written: the library then
 * goes on with zeros or from where it stands. Only the handle knows.
 */
bool has_no_error(const SoundHandle& handle) {
    const int error = errno;
    open_reason = sf_error(handle.get()) == SF_ERR_NO_ERROR ? "" : sf_strerror(handle.get());
    if (!open_reason.empty()) {
        reporting::note_write_error(error);
    }
    return open_reason.empty();
}

/** Deleter: sf_close, unless close_sound closed the file earlier. */
struct CloseSound {
    int written_scratch = -1;  // the descriptor of a file that may have been longer before
    bool closed = false;

    void operator()(SNDFILE* file) { close(file); }

    int close(SNDFILE* file) {
        if (closed) {
            return 0;
        }
        closed = true;
        if (written_scratch != -1) {
            ScratchSounds::trim(written_scratch);  // before the library notes the length
        }
        return sf_close(file);
    }
};

// The library keeps the reason of a failed opening in one place for the whole process, and every
// opening clears it.
std::mutex opening;

/** Whether opening waits for another program, which must not hold up the other threads. */
bool may_wait(const std::string& path) {
    struct stat status = {};
    return ::stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode);
}

/** The descriptor of a scratch file of this path, or -1. */
int open_scratch(const std::string& path, int mode, int format) {
    ScratchSounds& scratch = ScratchSounds::of_this_thread();
    if (mode == SFM_READ) {
        return scratch.open_for_reading(path);
    }
    // What an encoder makes may be of any length, and the file's pages are not the next one's.
    if (!SampleCodec::is_plain_in(format)) {
        scratch.release(path);
    }
    return scratch.open_for_writing(path);
}

SoundHandle open_sound(const std::string& path, int mode, SF_INFO& info) {
    open_reason = "";
    errno = 0;
    const int scratch = open_scratch(path, mode, info.format);
    std::unique_lock<std::mutex> lock(opening, std::defer_lock);
    if (scratch != -1 || !may_wait(path)) {
        lock.lock();
    }
    SNDFILE* file = scratch == -1 ? sf_open(path.c_str(), mode, &info)
                                  : sf_open_fd(scratch, mode, &info, SF_TRUE);
    if (file == nullptr) {
        reporting::note_write_error(mode == SFM_WRITE ? errno : 0);
        open_reason = sf_strerror(nullptr);
        return SoundHandle();
    }
    if (lock.owns_lock()) {
        lock.unlock();
    }
    const SoundHandle handle(file, CloseSound{mode == SFM_WRITE ? scratch : -1});
    return has_no_error(handle) ? handle : SoundHandle();
}

/**
 * The chunk of peaks in float files carries the time of day: the same input would not give the same
 * file. Its place in the header that opening has written is cut off, or a file without samples
 * would take it for some.
 */
bool leave_out_peaks(const SoundHandle& handle) {
    sf_count_t no_frames = 0;
    sf_command(handle.get(), SFC_SET_ADD_PEAK_CHUNK, nullptr, SF_FALSE);
    sf_command(handle.get(), SFC_UPDATE_HEADER_NOW, nullptr, 0);
    const bool updated = has_no_error(handle);
    if (boost::get_deleter<CloseSound>(handle)->written_scratch != -1) {
        sf_seek(handle.get(), no_frames, SEEK_SET);  // the rest goes when the file is closed
    } else {
        sf_command(handle.get(), SFC_FILE_TRUNCATE, &no_frames, sizeof no_frames);
    }
    return updated;
}

std::string library_name(int command, int format) {
    SF_FORMAT_INFO names;
    std::memset(&names, 0, sizeof names);
    names.format = format;
    sf_command(nullptr, command, &names, sizeof names);
    return names.name == nullptr ? "unknown" : names.name;
}

}  // namespace

SoundHandle open_sound_for_reading(const std::string& path, SF_INFO& info) {
    std::memset(&info, 0, sizeof info);
    return open_sound(path, SFM_READ, info);
}

SoundHandle open_sound_for_writing(const std::string& path, SF_INFO& info) {
    const SoundHandle handle = open_sound(path, SFM_WRITE, info);
    const int encoding = info.format & SF_FORMAT_SUBMASK;
    const bool has_peaks = encoding == SF_FORMAT_FLOAT || encoding == SF_FORMAT_DOUBLE;
    return !handle || !has_peaks || leave_out_peaks(handle) ? handle : SoundHandle();
}

bool promises_length(const SF_INFO& info) {
    constexpr sf_count_t kMostFrames = sf_count_t{1} << 48;  // 186 years at 48 kHz
    return info.frames < kMostFrames && (info.format & SF_FORMAT_TYPEMASK) != SF_FORMAT_MPEG;
}

const std::string& sound_open_reason() {
    return open_reason;
}

void keep_sound_write_reason(const std::string& reason) {
    write_reason = reason;
}

const std::string& sound_write_reason() {
    return write_reason;
}

int close_sound(SoundHandle& handle) {
    const int error = boost::get_deleter<CloseSound>(handle)->close(handle.get());
    handle.reset();
    return error;
}

std::string format_name(int format, const char* between) {
    return library_name(SFC_GET_FORMAT_INFO, format & SF_FORMAT_TYPEMASK) + between +
           library_name(SFC_GET_FORMAT_INFO, format & SF_FORMAT_SUBMASK);
}

}  // namespace level_engine
