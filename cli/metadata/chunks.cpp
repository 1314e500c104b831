#include "cli/metadata/chunks.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <limits>
#include <memory>
#include <set>
#include <stdexcept>
#include <system_error>
#include <vector>

namespace cli {
namespace {

using Bytes = std::vector<unsigned char>;

constexpr std::uint64_t kUnknown32 = 0xFFFFFFFF;
constexpr std::size_t kCopyBlock = 1 << 20;
constexpr std::size_t kGuidBytes = 16;

class File {
  public:
    File(const std::string& path, const char* mode)
        : path_(path), file_(fopen(path.c_str(), mode)) {
        if (!file_) {
            fail();
        }
    }

    std::uint64_t size() {
        if (fseeko(file_.get(), 0, SEEK_END) != 0) {
            fail();
        }
        return static_cast<std::uint64_t>(ftello(file_.get()));
    }

    // As many of the bytes at the offset as the file has.
    Bytes read(std::uint64_t offset, std::size_t count) {
        Bytes bytes(count);
        if (fseeko(file_.get(), static_cast<off_t>(offset), SEEK_SET) != 0) {
            fail();
        }
        bytes.resize(fread(bytes.data(), 1, count, file_.get()));
        if (ferror(file_.get())) {
            fail();
        }
        return bytes;
    }

    void write(const Bytes& bytes) {
        if (!bytes.empty() && fwrite(bytes.data(), 1, bytes.size(), file_.get()) != bytes.size()) {
            fail();
        }
    }

    void close() {
        if (fclose(file_.release()) != 0) {
            fail();
        }
    }

  private:
    struct Closer {
        void operator()(FILE* file) const { fclose(file); }
    };

    [[noreturn]] void fail() const {
        throw std::system_error(errno, std::generic_category(), path_);
    }

    std::string path_;
    std::unique_ptr<FILE, Closer> file_;
};

enum class Kind { None, Wave, Rf64, Wave64, Aiff, Caf };

/** How the chunks of a container are laid out. */
struct Layout {
    Kind kind = Kind::None;
    bool big_endian = false;
    Bytes opening;  // the file's first bytes, up to the first chunk
    std::size_t id_bytes = 4;
    std::size_t size_bytes = 4;
    bool size_counts_header = false;
    std::size_t alignment = 2;

    std::size_t header_bytes() const { return id_bytes + size_bytes; }
};

struct Chunk {
    Bytes id;
    std::uint64_t offset = 0;  // of its content
    std::uint64_t size = 0;    // of its content

    std::string name() const { return std::string(id.begin(), id.begin() + 4); }
};

std::uint64_t get_number(const Bytes& bytes, std::size_t at, std::size_t count, bool big_endian) {
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < count; ++i) {
        value = value << 8 | bytes[at + (big_endian ? i : count - 1 - i)];
    }
    return value;
}

void put_number(
    Bytes& bytes, std::size_t at, std::size_t count, bool big_endian, std::uint64_t value) {
    for (std::size_t i = 0; i < count; ++i, value >>= 8) {
        bytes[at + (big_endian ? count - 1 - i : i)] = static_cast<unsigned char>(value & 0xFF);
    }
}

bool has_text(const Bytes& bytes, std::size_t at, const char* text) {
    return bytes.size() >= at + 4 && memcmp(bytes.data() + at, text, 4) == 0;
}

Layout layout_of(File& file) {
    const Bytes start = file.read(0, 40);
    Layout layout;
    const auto set = [&](Kind kind, bool big_endian, std::size_t opening) {
        layout.kind = kind;
        layout.big_endian = big_endian;
        layout.opening.assign(start.begin(), start.begin() + static_cast<std::ptrdiff_t>(opening));
    };
    if (has_text(start, 8, "WAVE")) {
        if (has_text(start, 0, "RIFF")) {
            set(Kind::Wave, false, 12);
        }
        if (has_text(start, 0, "RIFX")) {
            set(Kind::Wave, true, 12);
        }
        if (has_text(start, 0, "RF64") || has_text(start, 0, "BW64")) {
            set(Kind::Rf64, false, 12);
        }
    } else if (has_text(start, 0, "FORM") &&
               (has_text(start, 8, "AIFF") || has_text(start, 8, "AIFC"))) {
        set(Kind::Aiff, true, 12);
    } else if (has_text(start, 0, "riff") && has_text(start, 24, "wave") && start.size() == 40) {
        set(Kind::Wave64, false, 40);
        layout.id_bytes = kGuidBytes;
        layout.size_bytes = 8;
        layout.size_counts_header = true;
        layout.alignment = 8;
    } else if (has_text(start, 0, "caff") && start.size() >= 8) {
        set(Kind::Caf, true, 8);
        layout.size_bytes = 8;
        layout.alignment = 1;
    }
    return layout;
}

/** The chunks up to the first that does not fit the file; only the audio may be cut short. */
std::vector<Chunk> chunks_of(File& file, const Layout& layout) {
    std::vector<Chunk> chunks;
    const std::uint64_t end = file.size();
    std::uint64_t long_data = 0;
    for (std::uint64_t at = layout.opening.size(); at + layout.header_bytes() <= end;) {
        const Bytes header = file.read(at, layout.header_bytes());
        Chunk chunk;
        chunk.id.assign(header.begin(),
                        header.begin() + static_cast<std::ptrdiff_t>(layout.id_bytes));
        chunk.size = get_number(header, layout.id_bytes, layout.size_bytes, layout.big_endian);
        chunk.offset = at + layout.header_bytes();
        if (layout.size_counts_header) {
            if (chunk.size < layout.header_bytes()) {
                break;
            }
            chunk.size -= layout.header_bytes();
        }
        if (chunk.name() == "ds64" && chunk.size >= 24) {
            long_data = get_number(file.read(chunk.offset, 24), 8, 8, false);
        }
        if (layout.kind == Kind::Rf64 && chunk.name() == "data" && chunk.size == kUnknown32) {
            chunk.size = long_data;
        }
        if (chunk.size > end - chunk.offset) {
            const std::string name = chunk.name();
            if (name != "data" && name != "SSND") {
                break;
            }
            chunk.size = end - chunk.offset;
        }
        chunks.push_back(chunk);
        at = chunk.offset + chunk.size;
        at += (layout.alignment - at % layout.alignment) % layout.alignment;
    }
    return chunks;
}

bool is_audio(const Chunk& chunk) {
    return chunk.name() == "data" || chunk.name() == "SSND";
}

/** Chunks that belong to the samples or only fill space: never taken from the old file. */
bool describes_samples(const Chunk& chunk) {
    static const std::set<std::string> names = {
        "fmt ", "fact", "ds64", "PEAK", "levl", "slnt", "JUNK", "junk", "PAD ", "FLLR",  // WAV, W64
        "COMM", "FVER",                                                                  // AIFF
        "desc", "kuki", "pakt", "free", "peak", "ovvw"};                                 // CAF
    return is_audio(chunk) || names.count(chunk.name()) != 0;
}

class Writer {
  public:
    Writer(const Layout& layout, const std::string& path) : layout_(layout), file_(path, "wb") {
        file_.write(layout.opening);
        written_ = layout.opening.size();
    }

    // Room for the sizes that do not fit 32 bits; filled in by finish().
    void reserve_long_sizes(const Bytes& content) {
        long_sizes_ = content;
        long_sizes_at_ = written_ + layout_.header_bytes();
        add({'d', 's', '6', '4'}, content);
    }

    void add(const Bytes& id, const Bytes& content) {
        header(id, content.size());
        file_.write(content);
        written_ += content.size();
        pad();
    }

    void copy(const Chunk& chunk, File& from) {
        header(chunk.id, chunk.size);
        for (std::uint64_t done = 0; done < chunk.size;) {
            const Bytes block = from.read(
                chunk.offset + done,
                static_cast<std::size_t>(std::min<std::uint64_t>(kCopyBlock, chunk.size - done)));
            if (block.empty()) {
                throw std::runtime_error("a chunk ends before its size");
            }
            file_.write(block);
            done += block.size();
        }
        written_ += chunk.size;
        if (is_audio(chunk)) {
            audio_bytes_ = chunk.size;
        }
        pad();
    }

    // Closes the file and puts the sizes that are known now into its beginning.
    void finish(const std::string& path) {
        file_.close();
        Bytes opening = layout_.opening;
        switch (layout_.kind) {
            case Kind::Rf64:
                put_number(opening, 4, 4, false, kUnknown32);
                put_number(long_sizes_, 0, 8, false, written_ - 8);
                put_number(long_sizes_, 8, 8, false, audio_bytes_);
                break;
            case Kind::Wave64:
                put_number(opening, kGuidBytes, 8, false, written_);
                break;
            case Kind::Caf:
                return;
            default:
                if (written_ - 8 > kUnknown32) {
                    throw std::runtime_error(
                        "audio and metadata exceed 4 GiB, the container's limit");
                }
                put_number(opening, 4, 4, layout_.big_endian, written_ - 8);
        }
        File again(path, "r+b");
        again.write(opening);
        if (!long_sizes_.empty()) {
            again.read(long_sizes_at_, 0);  // moves there
            again.write(long_sizes_);
        }
        again.close();
    }

  private:
    void header(const Bytes& id, std::uint64_t size) {
        Bytes bytes = id;
        bytes.resize(layout_.header_bytes());
        const std::uint64_t total =
            size + (layout_.size_counts_header ? layout_.header_bytes() : 0);
        const bool too_long = layout_.size_bytes == 4 && total > kUnknown32;
        put_number(bytes, layout_.id_bytes, layout_.size_bytes, layout_.big_endian,
                   too_long ? kUnknown32 : total);
        file_.write(bytes);
        written_ += bytes.size();
    }

    void pad() {
        const std::size_t missing =
            (layout_.alignment - written_ % layout_.alignment) % layout_.alignment;
        file_.write(Bytes(missing, 0));
        written_ += missing;
    }

    const Layout& layout_;
    File file_;
    std::uint64_t written_ = 0;
    std::uint64_t audio_bytes_ = 0;
    Bytes long_sizes_;
    std::uint64_t long_sizes_at_ = 0;
};

/**
 * The loudness fields of a version 2 broadcast chunk: hundredths of LUFS, LU and dBTP, 0x7FFF for
 * "not set" (EBU Tech 3285).
 */
void refresh_broadcast_loudness(Bytes& chunk, const Loudness* loudness) {
    constexpr std::size_t kVersion = 346;
    constexpr std::size_t kLoudness = 412;
    constexpr std::uint64_t kNotSet = 0x7FFF;
    constexpr std::size_t kFields = 5;  // integrated, range, true peak, momentary, short-term
    if (chunk.size() < kLoudness + 2 * kFields || get_number(chunk, kVersion, 2, false) < 2) {
        return;
    }
    constexpr double kUnknown = std::numeric_limits<double>::quiet_NaN();
    double values[kFields] = {kUnknown, kUnknown, kUnknown, kUnknown, kUnknown};
    if (loudness) {
        values[0] = loudness->integrated_lufs;
        values[1] = loudness->range_lu;
        values[2] = loudness->true_peak_dbtp;
        for (double value : loudness->short_term_lufs.values) {
            if (std::isfinite(value)) {
                values[4] = std::fmax(values[4], value);
            }
        }
    }
    for (std::size_t i = 0; i < kFields; ++i) {
        const bool known = std::isfinite(values[i]) && std::fabs(values[i]) < 320;
        put_number(chunk, kLoudness + 2 * i, 2, false,
                   known ? static_cast<std::uint64_t>(std::llround(values[i] * 100)) : kNotSet);
    }
}

}  // namespace

bool copy_chunks(const std::string& metadata_from,
                 const std::string& audio_from,
                 const std::string& to,
                 const Loudness* loudness) {
    File old_file(metadata_from, "rb");
    File audio_file(audio_from, "rb");
    const Layout old_layout = layout_of(old_file);
    const Layout layout = layout_of(audio_file);
    if (layout.kind == Kind::None || layout.kind != old_layout.kind ||
        layout.big_endian != old_layout.big_endian) {
        return false;
    }

    const std::vector<Chunk> old_chunks = chunks_of(old_file, old_layout);
    Writer writer(layout, to);
    const auto copy_metadata = [&](const Chunk& chunk) {
        if (describes_samples(chunk)) {
            return;
        }
        if (chunk.name() != "bext") {
            return writer.copy(chunk, old_file);
        }
        Bytes content = old_file.read(chunk.offset, static_cast<std::size_t>(chunk.size));
        refresh_broadcast_loudness(content, loudness);
        writer.add(chunk.id, content);
    };
    // libsndfile takes what follows the audio of a Wave64 file for audio.
    const auto old_audio = layout.kind == Kind::Wave64
                               ? old_chunks.end()
                               : std::find_if(old_chunks.begin(), old_chunks.end(), is_audio);
    bool audio_written = false;
    for (const Chunk& chunk : chunks_of(audio_file, layout)) {
        if (chunk.name() == "ds64") {
            writer.reserve_long_sizes(
                audio_file.read(chunk.offset, static_cast<std::size_t>(chunk.size)));
        } else if (is_audio(chunk)) {
            std::for_each(old_chunks.begin(), old_audio, copy_metadata);
            writer.copy(chunk, audio_file);
            audio_written = true;
        } else if (describes_samples(chunk)) {
            writer.copy(chunk, audio_file);
        }
    }
    if (!audio_written) {
        throw std::runtime_error("the leveled file holds no audio");
    }
    std::for_each(old_audio, old_chunks.end(), copy_metadata);
    writer.finish(to);
    return true;
}

}  // namespace cli
