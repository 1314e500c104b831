#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

namespace quorvane {

using Bytes = std::vector<unsigned char>;

/** Bytes at a time where a whole file is gone through or copied. */
constexpr std::size_t kFileBlock = 1 << 20;

/** A file read and written as bytes at offsets. Every call throws std::system_error on failure. */
class ByteFile {
  public:
    /**
     * `mode` as for fopen, with "b". The bytes before `begin` are another's: offsets and the size
     * leave them out.
     */
    ByteFile(const std::string& path, const char* mode, std::uint64_t begin = 0);

    std::uint64_t size();

    /**
     * The offset of the first byte from there on that is not zero; the size where there is none.
     * Holes of a sparse file are skipped unread.
     */
    std::uint64_t end_of_zeros(std::uint64_t offset);

    /** As many of the bytes at the offset as the file has; moves there. */
    Bytes read(std::uint64_t offset, std::size_t count);

    /** Writes where the file stands. */
    void write(const Bytes& bytes);

    /** Closes it; what a full disk has to say comes here. */
    void close();

  private:
    struct Closer {
        void operator()(FILE* file) const { fclose(file); }
    };

    [[noreturn]] void fail() const;
    std::uint64_t end_of_hole(std::uint64_t offset, std::uint64_t end);

    std::string path_;
    std::unique_ptr<FILE, Closer> file_;
    std::uint64_t begin_;
};

/** Copies a file from an offset on. Throws std::system_error. */
void copy_from(const std::string& path, std::uint64_t offset, const std::string& to);

/** Which byte of a number stands first: the one that counts least, or most. */
enum class ByteOrder { Little, Big };

/** An unsigned number of `count` bytes (at most 8), all of which `bytes` must have. */
std::uint64_t get_number(const Bytes& bytes, std::size_t at, std::size_t count, ByteOrder order);
void put_number(
    Bytes& bytes, std::size_t at, std::size_t count, ByteOrder order, std::uint64_t value);

}  // namespace quorvane
