#include "cli/metadata/ogg_pages.h"

#include <boost/crc.hpp>
#include <cstring>
#include <numeric>
#include <stdexcept>

#include "cli/metadata/byte_file.h"

namespace cli {
namespace {

// The header of a page (RFC 3533): "OggS", version, flags, position (8), serial number (4), page
// number (4), check sum (4), number of segments (1), and a byte of length for each segment.
constexpr std::size_t kFlagsAt = 5;
constexpr unsigned char kLastPage = 4;
constexpr std::size_t kSerialAt = 14;
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

}  // namespace

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
        put_number(page, kChecksumAt, 4, ByteOrder::Little, 0);
        // The polynomial of Ethernet's sum, but unreflected and from 0: no standard one.
        boost::crc_optimal<32, 0x04C11DB7, 0, 0, false, false> sum;
        sum.process_bytes(page.data(), page.size());
        put_number(page, kChecksumAt, 4, ByteOrder::Little, sum.checksum());
        file.read(at, 0);  // moves there
        file.write(page);
    }
    file.close();
}

}  // namespace cli
