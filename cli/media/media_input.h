#pragma once

#include <string>

#include "cli/media/handles.h"

namespace cli::media {

/** How an MP4 or QuickTime file lays out its parts. */
struct Layout {
    std::string doctype;         // of Matroska: "matroska" or "webm"
    bool index_first = false;    // the index (moov) stands before the media data
    std::int64_t fragments = 0;  // moof boxes
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
 * container asks for is refused.
 */
class MediaInput {
  public:
    /** Throws std::system_error when it cannot be opened, FileError when it is no such file. */
    explicit MediaInput(const std::string& path);

    AVFormatContext& context() const { return *context_; }

    AVStream& stream(int index) const { return *context_->streams[index]; }

    /** The demuxer's first name: "mov", "matroska", "asf", ... */
    const std::string& demuxer() const { return demuxer_; }

    Layout layout() const;

    /** Reads only the packets of the streams for which `wanted` holds. */
    template <class Wanted>
    void read_only(Wanted wanted) {
        for (unsigned i = 0; i < context_->nb_streams; ++i) {
            const bool take = wanted(static_cast<int>(i));
            context_->streams[i]->discard = take ? AVDISCARD_DEFAULT : AVDISCARD_ALL;
        }
    }

    /** The next packet; false at the end. Throws FileError when the file is damaged. */
    bool read(AVPacket& packet) const;

    /** How much of the file's bytes has been read, 0 to 1. */
    double fraction_read() const;

  private:
    Layout mp4_layout() const;

    FileIo io_;
    InputContext context_;
    std::string demuxer_;
};

/**
 * True when FFmpeg's libraries know what the file's content is and it is not one of the formats
 * that libsndfile reads.
 */
bool is_media(const std::string& path);

}  // namespace cli::media
