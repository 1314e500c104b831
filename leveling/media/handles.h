#pragma once

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/channel_layout.h>
#include <libswresample/swresample.h>
}

#include <cerrno>
#include <cstdint>
#include <memory>
#include <new>
#include <string>

#include "leveling/facts/file_error.h"

/** Owners for what FFmpeg's libraries hand out, and their error codes as exceptions. */
namespace quorvane::media {

struct FreeInput {
    void operator()(AVFormatContext* context) const { avformat_close_input(&context); }
};

struct FreeOutput {
    void operator()(AVFormatContext* context) const { avformat_free_context(context); }
};

struct FreeCodec {
    void operator()(AVCodecContext* context) const { avcodec_free_context(&context); }
};

struct FreeFrame {
    void operator()(AVFrame* frame) const { av_frame_free(&frame); }
};

struct FreePacket {
    void operator()(AVPacket* packet) const { av_packet_free(&packet); }
};

struct FreeResampler {
    void operator()(SwrContext* context) const { swr_free(&context); }
};

using InputContext = std::unique_ptr<AVFormatContext, FreeInput>;
using OutputContext = std::unique_ptr<AVFormatContext, FreeOutput>;
using CodecContext = std::unique_ptr<AVCodecContext, FreeCodec>;
using Frame = std::unique_ptr<AVFrame, FreeFrame>;
using Packet = std::unique_ptr<AVPacket, FreePacket>;
using Resampler = std::unique_ptr<SwrContext, FreeResampler>;

/** av_dict_set. Throws std::bad_alloc. */
void set_entry(AVDictionary** entries, const char* name, const char* value);

/**
 * Makes a call into FFmpeg's libraries and returns its code. They pass over a tag, and other things
 * that they can do without, when memory runs out, and report success; only errno shows it.
 * Throws std::bad_alloc then.
 */
template <class Call>
int with_memory(const Call& call) {
    errno = 0;
    const int code = call();
    if (errno == ENOMEM) {
        throw std::bad_alloc();
    }
    return code;
}

/** A frame's length in the time base of its stream; the library renamed the field. */
std::int64_t duration_of(const AVFrame& frame);

/** Options for a library call, freed with what the call did not take. */
class Options {
  public:
    Options() = default;
    Options(const Options&) = delete;
    Options& operator=(const Options&) = delete;

    ~Options() { av_dict_free(&entries_); }

    void set(const char* name, const std::string& value) {
        set_entry(&entries_, name, value.c_str());
    }

    AVDictionary** get() { return &entries_; }

  private:
    AVDictionary* entries_ = nullptr;
};

CodecContext make_codec(const AVCodec& codec);
Frame make_frame();
Packet make_packet();

/** The libraries' own words for a code, with the last error they logged where there is one. */
std::string reason(int code);

/** Throws FileError, "doing: reason", when the code is an error. Returns the code. */
int check(int code, const char* doing);

/** How many errors the libraries have logged: some go on behind damage and only log it. */
std::int64_t logged_errors();

/**
 * Sends the libraries' errors to the standard error stream and remembers the last one for reason().
 * Warnings are dropped: most are about files that play well.
 */
void keep_log();

constexpr AVRational kNanoseconds = {1, 1000000000};

}  // namespace quorvane::media
