#include "leveling/media/media_input.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <new>
#include <system_error>

extern "C" {
#include <libavutil/avstring.h>
#include <libavutil/intreadwrite.h>
}

namespace quorvane::media {
namespace {

// The library's buffer for reading.
constexpr int kIoBytes = 1 << 16;
// Bounds for what a header claims; it comes from anywhere.
constexpr unsigned kMostStreams = 100;
constexpr std::int64_t kMostBoxes = 1 << 20;

// Demuxers allocate what a length field claims before they check that it is there (a WavPack tag
// of 4 KB wanted 1.2 GB). No one piece of an honest file's data comes near to this.
constexpr std::size_t kMostPieceBytes = 32 << 20;
constexpr std::size_t kPieceBytesPerByte = 50;

/** Demuxers of what libsndfile reads. */
constexpr const char* kSoundFiles = "wav,w64,aiff,flac,ogg,mp3,caf,au,sds,nistsphere,ircam,voc";

/** Demuxers whose files hold all that they refer to. */
constexpr const char* kReadable =
    "mov,matroska,asf,avi,aac,ac3,eac3,wv,tta,ape,dsf,wav,w64,aiff,flac,ogg,mp3,caf,au";

/** For the library: the bytes that were read, or its code for the end or an error. */
int read_file(void* file, std::uint8_t* bytes, int count) {
    for (;;) {
        const ssize_t got = ::read(*static_cast<int*>(file), bytes, static_cast<size_t>(count));
        if (got > 0) {
            return static_cast<int>(got);
        }
        if (got == 0) {
            return AVERROR_EOF;
        }
        if (errno != EINTR) {
            return AVERROR(errno);
        }
    }
}

/** For the library: the new place, or the size with AVSEEK_SIZE. */
std::int64_t seek_file(void* file, std::int64_t offset, int whence) {
    const int descriptor = *static_cast<int*>(file);
    if (whence & AVSEEK_SIZE) {
        struct stat status {};

        return fstat(descriptor, &status) == 0 ? status.st_size : AVERROR(errno);
    }
    const off_t place = lseek(descriptor, offset, whence & ~AVSEEK_FORCE);
    return place < 0 ? AVERROR(errno) : place;
}

/** Playlists and reference movies name other files, which a worker must not read. */
int refuse_to_open(AVFormatContext* /*context*/,
                   AVIOContext** /*io*/,
                   const char* url,
                   int /*flags*/,
                   AVDictionary** /*options*/) {
    av_log(nullptr, AV_LOG_ERROR, "it refers to another file, %s, which is not opened\n", url);
    return AVERROR(EACCES);
}

std::uint64_t big_endian(const std::uint8_t* bytes, int count) {
    std::uint64_t value = 0;
    for (int i = 0; i < count; ++i) {
        value = value << 8 | bytes[i];
    }
    return value;
}

/** What the content is, or null. The file's name is not asked. */
const AVInputFormat* probe_format(const FileIo& io) {
    const AVInputFormat* format = nullptr;
    const int score = with_memory(
        [&] { return av_probe_input_buffer2(io.context(), &format, "", nullptr, 0, 0); });
    return score < 0 ? nullptr : format;
}

/** "mov" of "mov,mp4,m4a,3gp,3g2,mj2". */
std::string first_name(const AVInputFormat& format) {
    const std::string names = format.name;
    return names.substr(0, names.find(','));
}

[[noreturn]] void fail_to_open(int code, const std::string& format) {
    const std::string why = reason(code);
    if (why.find("moov atom not found") != std::string::npos) {
        throw FileError(
            "its index (moov) is missing: the recording was cut off before it was completed");
    }
    if (code == AVERROR(ENOMEM) || why.find("max_streams") != std::string::npos) {
        throw FileError(fmt::format(
            "it has more than {} streams, or claims more data than its size allows", kMostStreams));
    }
    throw FileError(fmt::format("cannot be read as {}: {}", format, why));
}

}  // namespace

FileIo::FileIo(const std::string& path) {
    file_ = open(path.c_str(), O_RDONLY | O_CLOEXEC);

    struct stat status {};

    if (file_ < 0 || fstat(file_, &status) != 0) {
        throw std::system_error(errno, std::generic_category(), "cannot be read");
    }
    size_ = status.st_size;
    av_max_alloc(kMostPieceBytes + kPieceBytesPerByte * static_cast<std::size_t>(size_));
    auto* buffer = static_cast<std::uint8_t*>(av_malloc(kIoBytes));
    context_ = avio_alloc_context(buffer, kIoBytes, 0, &file_, read_file, nullptr, seek_file);
    if (!context_) {
        av_free(buffer);
        close(file_);
        throw std::bad_alloc();
    }
}

FileIo::~FileIo() {
    av_freep(&context_->buffer);
    avio_context_free(&context_);
    close(file_);
}

// By content, never by name. Formats that libsndfile reads are left to it.
bool is_media(const std::string& path) {
    try {
        keep_log();
        const FileIo io(path);
        const AVInputFormat* format = probe_format(io);
        return format && av_match_list(first_name(*format).c_str(), kSoundFiles, ',') <= 0;
    } catch (const std::system_error&) {
        return false;
    }
}

bool can_serve(const std::string& path) {
    try {
        keep_log();
        const FileIo io(path);
        const AVInputFormat* format = nullptr;
        const int score = with_memory(
            [&] { return av_probe_input_buffer2(io.context(), &format, "", nullptr, 0, 0); });
        if (score < 0 || !format) {
            return false;
        }
        const std::string name = first_name(*format);
        const bool is_sound_file = av_match_list(name.c_str(), kSoundFiles, ',') > 0;
        return !is_sound_file ||
               (score > AVPROBE_SCORE_EXTENSION && av_match_list(name.c_str(), kReadable, ',') > 0);
    } catch (const std::system_error&) {
        return false;
    }
}

MediaInput::MediaInput(const std::string& path) : io_(path) {
    keep_log();
    const AVInputFormat* format = probe_format(io_);
    if (!format) {
        throw FileError("cannot be read as audio: its format is not known");
    }
    demuxer_ = first_name(*format);
    if (av_match_list(demuxer_.c_str(), kReadable, ',') <= 0) {
        throw FileError(fmt::format("its format ({}) is not supported", format->long_name));
    }

    AVFormatContext* context = avformat_alloc_context();
    if (!context) {
        throw std::bad_alloc();
    }
    context->pb = io_.context();
    context->io_open = refuse_to_open;
    context->max_streams = static_cast<int>(kMostStreams);
    Options options;
    options.set("format_whitelist", kReadable);
    options.set("protocol_whitelist", "");
    options.set("enable_drefs", "0");
    options.set("use_absolute_path", "0");
    const int code = with_memory([&] {
        const int opened = avformat_open_input(&context, "", format, options.get());
        context_.reset(context);
        return opened;
    });
    if (code < 0) {
        fail_to_open(code, format->long_name);
    }
    const int found = with_memory([&] { return avformat_find_stream_info(context, nullptr); });
    if (found < 0) {
        fail_to_open(found, format->long_name);
    }
    if (context->nb_streams > kMostStreams) {
        fail_to_open(AVERROR(ENOMEM), format->long_name);
    }
}

// A demuxer goes on behind an error where it can; a row of errors without a packet is the end of
// what can be read.
bool MediaInput::read(AVPacket& packet) {
    constexpr int kMostErrors = 100;  // in a row
    int code = 0;
    for (int errors = 0; errors < kMostErrors; ++errors) {
        code = with_memory([&] { return av_read_frame(context_.get(), &packet); });
        if (code >= 0 || code == AVERROR_EOF) {
            break;
        }
        // An error of the system is not damage to the file.
        const int error = io_.context()->error;
        check(error == AVERROR_EOF ? 0 : error, "it cannot be read");
        ++read_errors_;
    }
    if (code < 0) {
        // Some demuxers take a failed read for the end.
        const int error = io_.context()->error;
        check(error == AVERROR_EOF ? 0 : error, "it cannot be read");
        return false;
    }
    if (av_packet_get_side_data(&packet, AV_PKT_DATA_ENCRYPTION_INFO, nullptr)) {
        throw FileError(kEncrypted);
    }
    return true;
}

// By bytes: a damaged file may have no length in time.
double MediaInput::fraction_read() const {
    const double place = static_cast<double>(avio_tell(io_.context()));
    return io_.size() > 0 ? std::clamp(place / static_cast<double>(io_.size()), 0.0, 1.0) : 1;
}

Layout MediaInput::layout() const {
    if (demuxer_ == "mov") {
        return mp4_layout();
    }
    if (demuxer_ == "asf") {
        return asf_layout();
    }
    Layout layout;
    std::array<char, 64> head{};
    const bool is_read = pread(io_.descriptor(), head.data(), head.size(), 0) > 0;
    layout.is_rf64 = is_read && demuxer_ == "wav" && std::string(head.data(), 4) == "RF64";
    if (demuxer_ == "matroska" && is_read) {
        // The DocType element: its identity, one byte of length, the text.
        constexpr char kDocType[] = {'\x42', '\x82'};
        const auto at = std::search(head.begin(), head.end() - 12, kDocType, kDocType + 2);
        if (at != head.end() - 12) {
            layout.doctype.assign(at + 3, at + 3 + std::min(at[2] & 0x7f, 8));
        }
    }
    return layout;
}

// The properties of the file: 16 bytes of identity, size (8), file (16), bytes (8), date (8),
// packets (8), time to play (8, in 100 ns) and to send (8), and the time before the sound (8, ms).
Layout MediaInput::asf_layout() const {
    static constexpr std::uint8_t kProperties[] = {0xA1, 0xDC, 0xAB, 0x8C, 0x47, 0xA9, 0xCF, 0x11,
                                                   0x8E, 0xE4, 0x00, 0xC0, 0x0C, 0x20, 0x53, 0x65};
    constexpr std::ptrdiff_t kPlayAt = 64;
    constexpr std::ptrdiff_t kPrerollAt = 80;
    Layout layout;
    std::array<std::uint8_t, 1 << 16> head{};
    const ssize_t got = pread(io_.descriptor(), head.data(), head.size(), 0);
    const std::uint8_t* const begin = head.data();
    const std::uint8_t* const end = begin + std::max<ssize_t>(got, 0);
    const std::uint8_t* const at =
        std::search(begin, end, std::begin(kProperties), std::end(kProperties));
    if (end - at >= kPrerollAt + 8) {
        const auto play = static_cast<std::int64_t>(AV_RL64(at + kPlayAt));
        const auto preroll = static_cast<std::int64_t>(AV_RL64(at + kPrerollAt));
        if (play > 0 && play < INT64_MAX / 100 && preroll >= 0 && preroll < INT32_MAX) {
            layout.length_ns = std::max<std::int64_t>(play * 100 - preroll * 1000000, 0);
        }
    }
    return layout;
}

// Walks the boxes of the first level: 32-bit size, type, and a 64-bit size where the first is 1.
Layout MediaInput::mp4_layout() const {
    Layout layout;
    bool index_seen = false;
    bool data_seen = false;
    std::int64_t place = 0;
    for (std::int64_t count = 0; count < kMostBoxes && place + 8 <= io_.size(); ++count) {
        std::uint8_t head[16] = {};
        if (pread(io_.descriptor(), head, sizeof head, place) < 8) {
            break;
        }
        std::uint64_t size = big_endian(head, 4);
        const std::string type(reinterpret_cast<const char*>(head) + 4, 4);
        size = size == 1 ? big_endian(head + 8, 8) : size;
        layout.fragments += type == "moof";
        index_seen = index_seen || type == "moov";
        data_seen = data_seen || type == "mdat";
        layout.index_first = layout.index_first || (index_seen && !data_seen);
        if (size < 8 || size > static_cast<std::uint64_t>(io_.size() - place)) {
            break;
        }
        place += static_cast<std::int64_t>(size);
    }
    return layout;
}

}  // namespace quorvane::media
