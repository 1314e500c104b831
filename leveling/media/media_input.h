#pragma once

#include <string>

#include "leveling/media/handles.h"

namespace quorvane::media {

/** What the libraries do not report of a file: how MP4 lays out its parts, how long ASF is. */
struct Layout {
    std::string doctype;         // of Matroska: "matroska" or "webm"
    bool index_first = false;    // the index (moov) stands before the media data
    std::int64_t fragments = 0;  // moof boxes
    bool is_rf64 = false;
    std::int64_t length_ns = 0;  // of ASF, as its header states it; 0: not stated
};

constexpr const char* kEncrypted = "it is encrypted (copy protected), so its sound cannot be read";

/** One file that the libraries read through its descriptor. */
class FileIo {
  public:
    /** Throws std::system_error. */
    explicit FileIo(const std::string& path);
    ~FileIo();
    FileIo(const FileIo&) = delete;
    FileIo& operator=(const FileIo&) = delete;

    AVIOContext* context() const { return context_; }

    int descriptor() const { return file_; }

    std::int64_t size() const { return size_; }

  private:
    int file_ = -1;
    std::int64_t size_ = 0;
    AVIOContext* context_ = nullptr;
};

/**
 * A media file that is open for reading, by what it holds and not by its name. Nothing but this
 * one file is ever opened: the libraries read from the descriptor, only containers that hold their
 * own data are accepted (no playlists, scripts or image sequences), and every further open that a
 * container requests is refused.
 */
class MediaInput {
  public:
    /** Throws std::system_error when it cannot be opened, FileError when it is not such a file. */
    explicit MediaInput(const std::string& path);

    AVFormatContext& context() const { return *context_; }

    AVStream& stream(int index) const { return *context_->streams[index]; }

    /** The demuxer's first name: "mov", "matroska", "asf", ... */
    const std::string& demuxer() const { return demuxer_; }

    Layout layout() const;

    /** Reads only the packets of the streams for which `wanted` holds. */
    template <class Callback>
    void read_only(Callback wanted) {
        for (unsigned i = 0; i < context_->nb_streams; ++i) {
            const bool take = wanted(static_cast<int>(i));
            context_->streams[i]->discard = take ? AVDISCARD_DEFAULT : AVDISCARD_ALL;
        }
    }

    /**
     * The next packet that can be read; false at the end, or where damage leaves no more. Throws
     * FileError when the system cannot read the file, or it is encrypted.
     */
    bool read(AVPacket& packet);

    /** Times that damage kept read() from the next packet. */
    std::int64_t read_errors() const { return read_errors_; }

    /** How much of the file's bytes has been read, 0 to 1. */
    double fraction_read() const;

  private:
    Layout mp4_layout() const;
    Layout asf_layout() const;

    FileIo io_;
    InputContext context_;
    std::string demuxer_;
    std::int64_t read_errors_ = 0;
};

/**
 * True when FFmpeg's libraries know what the file's content is and it is not one of the formats
 * that libsndfile reads.
 */
bool is_media(const std::string& path);

/**
 * True when MediaInput reads such files: media, and formats of libsndfile's too where their content
 * shows more than a weak likeness.
 */
bool can_serve(const std::string& path);

}  // namespace quorvane::media
