#include "leveling/metadata/vorbis_comment.h"

#include <algorithm>
#include <optional>
#include <string>

#include "leveling/metadata/player_gains.h"

/*
 * A comment (xiph.org, Vorbis I, section 5): the vendor, a number of fields, and the fields
 * "NAME=text", each with its length in front; FLAC and Opus hold the same. The vendor names the
 * encoder and is the new stream's; the fields are the old one's, without gains.
 */

namespace quorvane {
namespace {

constexpr std::size_t kLengthBytes = 4;  // little endian

/** Reads stretches that begin with their length; nothing once one does not fit. */
class Reader {
  public:
    explicit Reader(const Bytes& bytes) : bytes_(bytes) {}

    std::optional<std::uint64_t> number() {
        if (bytes_.size() - at_ < kLengthBytes) {
            return std::nullopt;
        }
        at_ += kLengthBytes;
        return get_number(bytes_, at_ - kLengthBytes, kLengthBytes, ByteOrder::Little);
    }

    std::optional<Bytes> text() {
        const auto length = number();
        if (!length || *length > bytes_.size() - at_) {
            return std::nullopt;
        }
        const auto from = bytes_.begin() + static_cast<std::ptrdiff_t>(at_);
        at_ += static_cast<std::size_t>(*length);
        return Bytes(from, from + static_cast<std::ptrdiff_t>(*length));
    }

    Bytes rest() const { return {bytes_.begin() + static_cast<std::ptrdiff_t>(at_), bytes_.end()}; }

  private:
    const Bytes& bytes_;
    std::size_t at_ = 0;
};

void append_number(Bytes& to, std::uint64_t value) {
    to.resize(to.size() + kLengthBytes);
    put_number(to, to.size() - kLengthBytes, kLengthBytes, ByteOrder::Little, value);
}

void append_text(Bytes& to, const Bytes& text) {
    append_number(to, text.size());
    to.insert(to.end(), text.begin(), text.end());
}

}  // namespace

Bytes merged_comment(const Bytes& old_comment, const Bytes& new_comment) {
    Reader old_reader(old_comment);
    const auto vendor = Reader(new_comment).text();
    const auto old_vendor = old_reader.text();
    auto left = old_reader.number();
    // A comment that cannot be read is not carried over: the new stream's own is at least valid.
    if (!vendor || !old_vendor || !left) {
        return new_comment;
    }
    Bytes fields;
    std::uint64_t count = 0;
    for (; *left > 0; --*left) {
        const auto field = old_reader.text();
        if (!field) {
            return new_comment;
        }
        if (!is_player_gain({field->begin(), std::find(field->begin(), field->end(), '=')})) {
            append_text(fields, *field);
            ++count;
        }
    }
    Bytes merged;
    append_text(merged, *vendor);
    append_number(merged, count);
    merged.insert(merged.end(), fields.begin(), fields.end());
    // Vorbis ends with a framing bit, Opus may have data of its own behind the fields.
    const Bytes rest = old_reader.rest();
    merged.insert(merged.end(), rest.begin(), rest.end());
    return merged;
}

}  // namespace quorvane
