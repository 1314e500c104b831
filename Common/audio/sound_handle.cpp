#include "Common/audio/sound_handle.h"

#include <cstring>

namespace {

/** sf_close, unless the file was closed before the last owner let go. */
struct CloseSound {
    bool closed = false;

    void operator()(SNDFILE* file) const {
        if (!closed) {
            sf_close(file);
        }
    }
};

SoundHandle open_sound(const std::string& path, int mode, SF_INFO& info) {
    SNDFILE* file = sf_open(path.c_str(), mode, &info);
    return file == nullptr ? SoundHandle() : SoundHandle(file, CloseSound());
}

/**
 * The chunk of peaks in float files carries the time of day: the same input would not give the same
 * file. Its place in the header that opening has written is cut off, or a file without samples
 * would take it for some.
 */
void leave_out_peaks(SNDFILE* file) {
    sf_count_t no_frames = 0;
    sf_command(file, SFC_SET_ADD_PEAK_CHUNK, nullptr, SF_FALSE);
    sf_command(file, SFC_UPDATE_HEADER_NOW, nullptr, 0);
    sf_command(file, SFC_FILE_TRUNCATE, &no_frames, sizeof no_frames);
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
    SoundHandle handle = open_sound(path, SFM_WRITE, info);
    const int encoding = info.format & SF_FORMAT_SUBMASK;
    if (handle && (encoding == SF_FORMAT_FLOAT || encoding == SF_FORMAT_DOUBLE)) {
        leave_out_peaks(handle.get());
    }
    return handle;
}

int close_sound(SoundHandle& handle) {
    boost::get_deleter<CloseSound>(handle)->closed = true;
    const int error = sf_close(handle.get());
    handle.reset();
    return error;
}

std::string format_name(int format) {
    return library_name(SFC_GET_FORMAT_INFO, format & SF_FORMAT_TYPEMASK) + "/" +
           library_name(SFC_GET_FORMAT_INFO, format & SF_FORMAT_SUBMASK);
}
