#include "leveling/media/handles.h"

#include <fmt/format.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <mutex>
#include <new>

#include "leveling/facts/no_room.h"

namespace quorvane::media {
namespace {

// The library logs through one function of the process, from any of its threads.
std::mutex g_log_lock;
std::string g_last_error;
std::atomic<std::int64_t> g_errors{0};

/** Keeps the last error and counts all of them; nothing is printed. */
void take_log_line(void* source, int level, const char* format, va_list values) {
    if (level > AV_LOG_ERROR) {
        return;
    }
    ++g_errors;
    char line[512];
    int prefix = 0;
    av_log_format_line(source, level, format, values, line, sizeof line, &prefix);
    fprintf(stderr, "%s", line);
    // The same text without the name and address of the object that it is about.
    prefix = 0;
    av_log_format_line(nullptr, level, format, values, line, sizeof line, &prefix);
    const std::lock_guard<std::mutex> guard(g_log_lock);
    g_last_error = line;
    while (!g_last_error.empty() && (g_last_error.back() == '\n' || g_last_error.back() == '.')) {
        g_last_error.pop_back();
    }
}

}  // namespace

/** Throws std::bad_alloc, as do the functions below: the library returns null without memory. */
void set_entry(AVDictionary** entries, const char* name, const char* value) {
    if (av_dict_set(entries, name, value, 0) < 0) {
        throw std::bad_alloc();
    }
}

CodecContext make_codec(const AVCodec& codec) {
    CodecContext context(avcodec_alloc_context3(&codec));
    if (!context) {
        throw std::bad_alloc();
    }
    return context;
}

Frame make_frame() {
    Frame frame(av_frame_alloc());
    if (!frame) {
        throw std::bad_alloc();
    }
    return frame;
}

Packet make_packet() {
    Packet packet(av_packet_alloc());
    if (!packet) {
        throw std::bad_alloc();
    }
    return packet;
}

// The log often says more than the code: "Invalid data" and which field of it.
std::string reason(int code) {
    char text[AV_ERROR_MAX_STRING_SIZE] = "";
    av_strerror(code, text, sizeof text);
    const std::lock_guard<std::mutex> guard(g_log_lock);
    return g_last_error.empty() ? std::string(text) : fmt::format("{} ({})", text, g_last_error);
}

// Returns the code, which is a count or a score where it is not an error.
int check(int code, const char* doing) {
    if (code < 0) {
        if (code == AVERROR(ENOSPC) || code == AVERROR(EDQUOT)) {
            throw NoRoomError(fmt::format("{}: {}", doing, reason(code)));
        }
        throw FileError(fmt::format("{}: {}", doing, reason(code)));
    }
    return code;
}

std::int64_t duration_of(const AVFrame& frame) {
#if LIBAVUTIL_VERSION_MAJOR >= 58
    return frame.duration;
#else
    return frame.pkt_duration;
#endif
}

std::int64_t logged_errors() {
    return g_errors;
}

void keep_log() {
    av_log_set_callback(take_log_line);
    const std::lock_guard<std::mutex> guard(g_log_lock);
    g_last_error.clear();
}

}  // namespace quorvane::media
