#include "leveling/inputs/file_kind.h"

#include <array>
#include <cstddef>
#include <cstring>
#include <fstream>
#include <set>
#include <string>
#include <string_view>

#include "leveling/audio/audio_formats.h"

namespace quorvane {
namespace {

using namespace std::string_view_literals;

/** Containers that FFmpeg's libraries read and write here, or at least read. */
const std::set<std::string>& media_extensions() {
    static const std::set<std::string> extensions = {
        "m4a",  "m4b", "m4r",  "m4v",  "mp4", "mov", "qt",  "3gp", "3gpp",
        "3g2",  "mkv", "mka",  "webm", "wma", "wmv", "asf", "avi", "aac",
        "adts", "ac3", "eac3", "wv",   "tta", "ape", "dsf"};
    return extensions;
}

/** Audio and video that is not leveled: listed as "not supported", where others are ignored. */
const std::set<std::string>& foreign_extensions() {
    static const std::set<std::string> extensions = {
        "aa",   "aax", "aa3", "amr",  "awb", "caff", "dff", "dts", "dv",   "f4v",
        "flv",  "gsm", "m2t", "m2ts", "mlp", "mp1",  "mp2", "mpc", "mpeg", "mpg",
        "mts",  "mxf", "ofr", "ogm",  "ogv", "oma",  "qcp", "ra",  "ram",  "rm",
        "rmvb", "shn", "spx", "tak",  "thd", "vob",  "voc", "wtv"};
    return extensions;
}

/** Bytes at the start of a format's files. */
struct Mark {
    std::size_t at;
    std::string_view bytes;
    FileKind kind;
};

constexpr Mark kMarks[] = {
    {0, "\x1a\x45\xdf\xa3"sv, FileKind::Wanted},                  // Matroska
    {0, "\x30\x26\xb2\x75\x8e\x66\xcf\x11"sv, FileKind::Wanted},  // ASF
    {8, "AVI "sv, FileKind::Wanted},
    {8, "WAVE"sv, FileKind::Wanted},
    {8, "AIF"sv, FileKind::Wanted},
    {4, "ftypavi"sv, FileKind::Other},  // pictures in the container of MP4
    {4, "ftyphei"sv, FileKind::Other},
    {4, "ftypmif1"sv, FileKind::Other},
    {4, "ftypjp"sv, FileKind::Other},
    {4, "ftypcrx"sv, FileKind::Other},
    {4, "ftyp"sv, FileKind::Wanted},
    {4, "moov"sv, FileKind::Wanted},
    {4, "mdat"sv, FileKind::Wanted},
    {0, "fLaC"sv, FileKind::Wanted},
    {0, "OggS"sv, FileKind::Wanted},
    {0, "caff"sv, FileKind::Wanted},
    {0, "ID3"sv, FileKind::Wanted},
    {0, "wvpk"sv, FileKind::Wanted},
    {0, "TTA1"sv, FileKind::Wanted},
    {0, "#!AMR"sv, FileKind::Unsupported},
    {0, ".RMF"sv, FileKind::Unsupported},
    {0, "FLV\x01"sv, FileKind::Unsupported},
    {0, "MPCK"sv, FileKind::Unsupported},
    {0, "\0\0\x01\xba"sv, FileKind::Unsupported},  // MPEG programme stream
};

constexpr std::size_t kTransportPacket = 188;  // bytes, the first of them a 'G'

/** By the first bytes, for files whose names have no known extension. */
FileKind kind_by_content(const std::filesystem::path& path) {
    std::array<char, kTransportPacket + 1> head{};
    std::ifstream(path, std::ios::binary).read(head.data(), head.size());
    const std::string_view bytes(head.data(), head.size());
    // The extension of an MPEG transport stream, "ts", is that of program text too.
    if (bytes.front() == 'G' && bytes.back() == 'G') {
        return FileKind::Unsupported;
    }
    for (const Mark& mark : kMarks) {
        if (bytes.compare(mark.at, mark.bytes.size(), mark.bytes) == 0) {
            return mark.kind;
        }
    }
    return FileKind::Other;
}

}  // namespace

// The extension decides where it is one of ours; only other files are opened.
FileKind file_kind(const std::filesystem::path& path) {
    const std::string extension = lower_extension(path.string());
    if (wanted_extensions().count(extension)) {
        return FileKind::Wanted;
    }
    const FileKind kind = kind_by_content(path);
    if (kind == FileKind::Other && foreign_extensions().count(extension)) {
        return FileKind::Unsupported;
    }
    return kind;
}

const std::set<std::string>& wanted_extensions() {
    static const std::set<std::string> extensions = [] {
        std::set<std::string> all = writable_extensions();
        all.insert(media_extensions().begin(), media_extensions().end());
        return all;
    }();
    return extensions;
}

}  // namespace quorvane
