#include "leveling/metadata/outer_tags.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "leveling/metadata/id3v2.h"
#include "leveling/metadata/player_gains.h"

/*
 * Tags that lie around the audio and not in its container: ID3v2 in front, and behind it ID3v1 with
 * its extension, APEv2, Lyrics3v2 and ID3v2 with a footer, in any order. They are found from the
 * outside in, one after the other, until neither end shows a mark any more; what is left between is
 * the audio. A tag that claims more than there is counts as audio: nothing is cut on a guess.
 */

namespace quorvane {
namespace {

constexpr std::size_t kId3v1Bytes = 128;
constexpr std::size_t kId3v1EnhancedBytes = 227;  // "TAG+", before ID3v1
constexpr std::size_t kApeHeaderBytes = 32;       // its footer has as many
constexpr std::size_t kLyrics3FooterBytes = 15;   // six digits and "LYRICS200"
constexpr std::uint32_t kApeHasHeader = 0x80000000;

/** Whether the text stands at the place, which need not be there. */
bool begins(const Bytes& bytes, const char* text, std::size_t at = 0) {
    const std::size_t length = strlen(text);
    return bytes.size() >= at + length && memcmp(bytes.data() + at, text, length) == 0;
}

/** The length of one tag that ends at `end`; 0 when there is none. */
std::uint64_t tag_before(ByteFile& file, std::uint64_t end) {
    const auto last = [&](std::size_t count) {
        return end >= count ? file.read(end - count, count) : Bytes();
    };
    if (begins(last(kId3v1Bytes), "TAG")) {
        return kId3v1Bytes;
    }
    if (begins(last(kId3v1EnhancedBytes), "TAG+")) {
        return kId3v1EnhancedBytes;
    }
    const Bytes ape = last(kApeHeaderBytes);
    if (begins(ape, "APETAGEX")) {
        const bool header = get_number(ape, 20, 4, ByteOrder::Little) & kApeHasHeader;
        const std::uint64_t length = get_number(ape, 12, 4, ByteOrder::Little);
        return length < kApeHeaderBytes ? 0 : length + (header ? kApeHeaderBytes : 0);
    }
    const Bytes lyrics = last(kLyrics3FooterBytes);
    if (begins(lyrics, "LYRICS200", 6)) {
        // The size in decimal digits, without them and the mark.
        const std::string digits(lyrics.begin(), lyrics.begin() + 6);
        const std::uint64_t length =
            std::strtoul(digits.c_str(), nullptr, 10) + kLyrics3FooterBytes;
        return begins(last(length), "LYRICSBEGIN") ? length : 0;
    }
    return id3v2_length_by_footer(last(kId3HeaderBytes));
}

/** An APEv2 tag, header or not, without its gains. One that cannot be read stays as it is. */
Bytes ape_without_gains(const Bytes& tag) {
    const std::size_t start = begins(tag, "APETAGEX") ? kApeHeaderBytes : 0;
    const std::size_t footer = tag.size() - kApeHeaderBytes;
    Bytes items;
    std::uint64_t count = 0;
    std::size_t at = start;
    for (std::uint64_t left = get_number(tag, footer + 16, 4, ByteOrder::Little); left > 0;
         --left) {
        if (at + 8 >= footer) {
            return tag;
        }
        const auto key = tag.begin() + static_cast<std::ptrdiff_t>(at) + 8;
        const auto key_end = std::find(key, tag.begin() + static_cast<std::ptrdiff_t>(footer), 0);
        const std::uint64_t length = 8 + static_cast<std::uint64_t>(key_end - key) + 1 +
                                     get_number(tag, at, 4, ByteOrder::Little);
        if (length > footer - at) {
            return tag;
        }
        if (!is_player_gain(std::string(key, key_end))) {
            items.insert(items.end(), key - 8, key - 8 + static_cast<std::ptrdiff_t>(length));
            ++count;
        }
        at += static_cast<std::size_t>(length);
    }
    // Header and footer tell size and number of the items, the footer's own bytes counted in.
    const auto frame = [&](std::size_t from) {
        Bytes bytes(tag.begin() + static_cast<std::ptrdiff_t>(from),
                    tag.begin() + static_cast<std::ptrdiff_t>(from + kApeHeaderBytes));
        put_number(bytes, 12, 4, ByteOrder::Little, items.size() + kApeHeaderBytes);
        put_number(bytes, 16, 4, ByteOrder::Little, count);
        return bytes;
    };
    Bytes result = start ? frame(0) : Bytes();
    result.insert(result.end(), items.begin(), items.end());
    const Bytes end = frame(footer);
    result.insert(result.end(), end.begin(), end.end());
    return result;
}

}  // namespace

AudioRange audio_between_tags(ByteFile& file) {
    AudioRange range{0, file.size()};
    for (std::uint64_t length = 0;
         (length = id3v2_length(file.read(range.begin, kId3HeaderBytes))) != 0 &&
         length <= range.end - range.begin;) {
        range.begin += length;
    }
    for (std::uint64_t length = 0;
         (length = tag_before(file, range.end)) != 0 && length <= range.end - range.begin;) {
        range.end -= length;
    }
    return range;
}

void copy_tags_before(ByteFile& from, const AudioRange& audio, ByteFile& to) {
    for (std::uint64_t at = 0; at < audio.begin;) {
        const std::uint64_t length = id3v2_length(from.read(at, kId3HeaderBytes));
        to.write(without_player_gains(from.read(at, static_cast<std::size_t>(length))));
        at += length;
    }
}

void copy_tags_behind(ByteFile& from, const AudioRange& audio, ByteFile& to) {
    // Found from the end, written from the front.
    std::vector<Bytes> tags;
    for (std::uint64_t end = from.size(); end > audio.end;) {
        const std::uint64_t length = tag_before(from, end);
        Bytes tag = from.read(end - length, static_cast<std::size_t>(length));
        const bool ape =
            tag.size() >= kApeHeaderBytes && begins(tag, "APETAGEX", tag.size() - kApeHeaderBytes);
        tags.push_back(ape ? ape_without_gains(tag) : without_player_gains(tag));
        end -= length;
    }
    for (auto tag = tags.rbegin(); tag != tags.rend(); ++tag) {
        to.write(*tag);
    }
}

void copy_outer_tags(const std::string& tags_from,
                     const std::string& audio_from,
                     const std::string& to) {
    ByteFile old_file(tags_from, "rb");
    ByteFile file(audio_from, "rb");
    ByteFile out(to, "wb");
    const AudioRange old_audio = audio_between_tags(old_file);
    const AudioRange audio = audio_between_tags(file);
    copy_tags_before(old_file, old_audio, out);
    copy_bytes(file, audio.begin, audio.end, out);
    copy_tags_behind(old_file, old_audio, out);
    out.close();
}

void copy_bytes(ByteFile& from, std::uint64_t begin, std::uint64_t end, ByteFile& to) {
    while (begin < end) {
        const Bytes block = from.read(
            begin, static_cast<std::size_t>(std::min<std::uint64_t>(kFileBlock, end - begin)));
        if (block.empty()) {
            throw std::runtime_error("a file of this run ends before its audio does");
        }
        to.write(block);
        begin += block.size();
    }
}

}  // namespace quorvane
