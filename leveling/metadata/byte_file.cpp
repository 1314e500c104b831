#include "leveling/metadata/byte_file.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

namespace quorvane {
namespace {

constexpr std::size_t kFirstBlock = 64;

}  // namespace

ByteFile::ByteFile(const std::string& path, const char* mode, std::uint64_t begin)
    : path_(path), file_(fopen(path.c_str(), mode)), begin_(begin) {
    if (!file_) {
        fail();
    }
}

std::uint64_t ByteFile::size() {
    // This moves the position, which is harmless: each read sets its own.
    if (fseeko(file_.get(), 0, SEEK_END) != 0) {
        fail();
    }
    const auto end = static_cast<std::uint64_t>(ftello(file_.get()));
    return end - std::min(begin_, end);
}

std::uint64_t ByteFile::end_of_hole(std::uint64_t offset, std::uint64_t end) {
#ifdef SEEK_DATA
    const int file = fileno(file_.get());
    // The stream keeps its own account of where the file stands.
    const off_t before = lseek(file, 0, SEEK_CUR);
    const off_t data = lseek(file, static_cast<off_t>(begin_ + offset), SEEK_DATA);
    const bool all_hole = data < 0 && errno == ENXIO;
    if (before < 0 || lseek(file, before, SEEK_SET) < 0) {
        fail();
    }
    if (all_hole) {
        return end;
    }
    return data < 0 ? offset : static_cast<std::uint64_t>(data) - begin_;
#else
    (void)end;
    return offset;
#endif
}

std::uint64_t ByteFile::end_of_zeros(std::uint64_t offset) {
    const std::uint64_t end = size();
    std::size_t count = kFirstBlock;  // most often the first byte decides
    while (offset < end) {
        const Bytes block = read(offset, count);
        const auto other =
            std::find_if(block.begin(), block.end(), [](unsigned char byte) { return byte != 0; });
        offset += static_cast<std::uint64_t>(other - block.begin());
        if (other != block.end() || block.empty()) {
            return offset;
        }
        offset = std::max(offset, end_of_hole(offset, end));
        count = kFileBlock;
    }
    return end;
}

Bytes ByteFile::read(std::uint64_t offset, std::size_t count) {
    Bytes bytes(count);
    if (fseeko(file_.get(), static_cast<off_t>(begin_ + offset), SEEK_SET) != 0) {
        fail();
    }
    // Fewer at the end of the file: the caller sees it by the length.
    bytes.resize(fread(bytes.data(), 1, count, file_.get()));
    if (ferror(file_.get())) {
        fail();
    }
    return bytes;
}

void ByteFile::write(const Bytes& bytes) {
    if (!bytes.empty() && fwrite(bytes.data(), 1, bytes.size(), file_.get()) != bytes.size()) {
        fail();
    }
}

void ByteFile::close() {
    // The last block goes to the disk here, which may be full.
    if (fclose(file_.release()) != 0) {
        fail();
    }
}

void ByteFile::fail() const {
    throw std::system_error(errno, std::generic_category(), path_);
}

void copy_from(const std::string& path, std::uint64_t offset, const std::string& to) {
    ByteFile from(path, "rb", offset);
    ByteFile copy(to, "wb");
    Bytes block;
    for (std::uint64_t done = 0; !(block = from.read(done, kFileBlock)).empty();) {
        copy.write(block);
        done += block.size();
    }
    copy.close();
}

std::uint64_t get_number(const Bytes& bytes, std::size_t at, std::size_t count, ByteOrder order) {
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < count; ++i) {
        value = value << 8 | bytes[at + (order == ByteOrder::Big ? i : count - 1 - i)];
    }
    return value;
}

void put_number(
    Bytes& bytes, std::size_t at, std::size_t count, ByteOrder order, std::uint64_t value) {
    for (std::size_t i = 0; i < count; ++i, value >>= 8) {
        bytes[at + (order == ByteOrder::Big ? count - 1 - i : i)] =
            static_cast<unsigned char>(value & 0xFF);
    }
}

}  // namespace quorvane
