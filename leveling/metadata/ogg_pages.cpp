#include "leveling/metadata/ogg_pages.h"

#include <algorithm>
#include <boost/crc.hpp>
#include <cstring>
#include <iterator>
#include <map>
#include <numeric>
#include <stdexcept>

#include "leveling/metadata/byte_file.h"

namespace quorvane {
namespace {

// The header of a page (RFC 3533): "OggS", version, flags, position (8), serial number (4), page
// number (4), check sum (4), number of segments (1), and a byte of length for each segment.
constexpr std::size_t kFlagsAt = 5;
constexpr unsigned char kLastPage = 4;
constexpr std::size_t kSerialAt = 14;
constexpr std::size_t kNumberAt = 18;
constexpr std::size_t kChecksumAt = 22;
constexpr std::size_t kSegmentsAt = 26;
constexpr std::size_t kPageHeaderBytes = 27;

/** After the header of the page at the offset; 0 when none begins there. */
std::size_t page_length(ByteFile& file, std::uint64_t at) {
    const Bytes header = file.read(at, kPageHeaderBytes);
    if (header.size() < kPageHeaderBytes || memcmp(header.data(), "OggS", 4) != 0) {
        return 0;
    }
    const Bytes lengths = file.read(at + kPageHeaderBytes, header[kSegmentsAt]);
    return std::accumulate(lengths.begin(), lengths.end(), kPageHeaderBytes + lengths.size());
}

/** The page at the offset; empty at the end of the file. */
Bytes read_page(ByteFile& file, std::uint64_t at) {
    const std::size_t length = page_length(file, at);
    if (length == 0 && !file.read(at, 1).empty()) {
        throw std::runtime_error("a page of an Ogg file does not begin with its mark");
    }
    return file.read(at, length);
}

/** The page's check sum, for which its own field counts as zeros. */
std::uint32_t checksum_of(Bytes page) {
    put_number(page, kChecksumAt, 4, ByteOrder::Little, 0);
    // The polynomial of Ethernet's sum, but unreflected and from 0: no standard one.
    boost::crc_optimal<32, 0x04C11DB7, 0, 0, false, false> sum;
    sum.process_bytes(page.data(), page.size());
    return sum.checksum();
}

/** Where the next page may begin; the file's end where none does. */
std::uint64_t find_mark(ByteFile& file, std::uint64_t at, std::uint64_t end) {
    constexpr char kMark[] = {'O', 'g', 'g', 'S'};
    while (at + sizeof kMark <= end) {
        const Bytes block = file.read(at, kFileBlock);
        const auto found =
            std::search(block.begin(), block.end(), std::begin(kMark), std::end(kMark));
        if (found != block.end()) {
            return at + static_cast<std::uint64_t>(found - block.begin());
        }
        at += block.size() - (sizeof kMark - 1);  // a mark may lie across the border
    }
    return end;
}

/** Goes over the pages of a file and compares sums and numbers. */
class PageCheck {
  public:
    explicit PageCheck(const std::string& path) : file_(path, "rb"), end_(file_.size()) {}

    OggState run() {
        std::uint64_t at = 0;
        while (at < end_) {
            at = step(at);
        }
        return state_;
    }

  private:
    std::uint64_t step(std::uint64_t at) {
        const std::size_t length = page_length(file_, at);
        if (length > end_ - at) {
            state_.is_marked_as_end = false;
            const std::uint64_t next = find_mark(file_, at + 1, end_);
            state_.is_damaged = state_.is_damaged || next < end_;
            return next;
        }
        const Bytes page = length == 0 ? Bytes() : file_.read(at, length);
        if (length == 0 ||
            checksum_of(page) != get_number(page, kChecksumAt, 4, ByteOrder::Little)) {
            state_.is_damaged = true;
            state_.is_marked_as_end = false;
            return find_mark(file_, at + 1, end_);
        }
        take(page);
        return at + length;
    }

    void take(const Bytes& page) {
        constexpr unsigned char kFirstPage = 2;
        const std::uint64_t stream = get_number(page, kSerialAt, 4, ByteOrder::Little);
        const std::uint64_t number = get_number(page, kNumberAt, 4, ByteOrder::Little);
        const auto expected = next_.find(stream);
        if (expected != next_.end() && expected->second != number &&
            !(page[kFlagsAt] & kFirstPage)) {
            state_.is_damaged = true;
        }
        next_[stream] = number + 1;
        state_.is_marked_as_end = (page[kFlagsAt] & kLastPage) != 0;
    }

    ByteFile file_;
    std::uint64_t end_;
    OggState state_;
    std::map<std::uint64_t, std::uint64_t> next_;  // page numbers, by the stream's serial number
};

}  // namespace

OggState check_ogg_pages(const std::string& path) {
    return PageCheck(path).run();
}

std::uint32_t ogg_serial(const std::string& path) {
    ByteFile file(path, "rb");
    const Bytes page = read_page(file, 0);
    if (page.empty()) {
        throw std::runtime_error("an Ogg file is empty");
    }
    return static_cast<std::uint32_t>(get_number(page, kSerialAt, 4, ByteOrder::Little));
}

bool ogg_ends_whole(const std::string& path) {
    ByteFile file(path, "rb");
    const std::uint64_t end = file.size();
    // The last page of a stream says so: a file without the mark was cut at a page.
    bool marked = false;
    for (std::uint64_t at = 0; at < end;) {
        const std::size_t length = page_length(file, at);
        if (length == 0 || length > end - at) {
            return false;
        }
        marked = file.read(at + kFlagsAt, 1)[0] & kLastPage;
        at += length;
    }
    return marked;
}

void set_ogg_serial(const std::string& path, std::uint32_t serial) {
    ByteFile file(path, "r+b");
    std::uint64_t at = 0;
    for (Bytes page; !(page = read_page(file, at)).empty(); at += page.size()) {
        put_number(page, kSerialAt, 4, ByteOrder::Little, serial);
        put_number(page, kChecksumAt, 4, ByteOrder::Little, checksum_of(page));
        file.read(at, 0);  // moves there
        file.write(page);
    }
    file.close();
}

void set_ogg_serial_of(std::string& file, std::uint32_t serial) {
    for (std::size_t at = 0; at < file.size();) {
        const std::size_t left = file.size() - at;
        const std::size_t segments =
            left < kPageHeaderBytes ? left : static_cast<unsigned char>(file[at + kSegmentsAt]);
        const std::size_t header = kPageHeaderBytes + segments;
        if (header > left || file.compare(at, 4, "OggS") != 0) {
            throw std::runtime_error("a page of an Ogg file is not whole");
        }
        std::size_t length = header;
        for (std::size_t i = at + kPageHeaderBytes; i < at + header; ++i) {
            length += static_cast<unsigned char>(file[i]);
        }
        const auto begin = file.begin() + static_cast<std::ptrdiff_t>(at);
        Bytes page(begin, begin + static_cast<std::ptrdiff_t>(std::min(length, left)));
        put_number(page, kSerialAt, 4, ByteOrder::Little, serial);
        put_number(page, kChecksumAt, 4, ByteOrder::Little, checksum_of(page));
        std::copy(page.begin(), page.end(), begin);
        at += page.size();
    }
}

}  // namespace quorvane
