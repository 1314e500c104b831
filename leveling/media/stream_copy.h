#pragma once

#include <string>

#include "leveling/media/handles.h"

/*
 * What of a stream and of its file goes to another file beside the packets. All throw
 * std::bad_alloc, and FileError where FFmpeg refuses.
 */

namespace quorvane::media {

/** Which tags: a stream with new packets loses what described the old ones. */
enum class Tags { All, OfNewSound };

void copy_tags(const AVDictionary* from, AVDictionary** to, Tags which);

/** The codec's parameters; the source's tag where the muxer knows it, or knows none for the codec.
 */
void copy_parameters(const AVStream& from, const AVOutputFormat& format, AVStream& to);

void copy_side_data(const AVStream& from, AVStream& to);

/** The packet's bytes as the codec's private data. */
void set_extradata(AVCodecParameters& parameters, const AVPacket& packet);

void copy_chapters(const AVFormatContext& from, AVFormatContext& to);

/** Whether the muxer takes the stream: known only by trying, which is done in memory. */
bool muxer_takes(const std::string& muxer, const AVStream& stream);

/**
 * Whether this version's Matroska muxer adds the codec delay to the times it is given, as the
 * demuxer takes it off: some do and some do not, so one packet is written to memory.
 */
bool muxer_adds_codec_delay(const AVCodecParameters& opus);

}  // namespace quorvane::media
