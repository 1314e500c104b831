#include "leveling/metadata/id3v2.h"

#include <gtest/gtest.h>

#include <string>

namespace quorvane {
namespace {

using namespace std::string_literals;

std::string without_gains(const std::string& tag) {
    const Bytes bytes = without_player_gains({tag.begin(), tag.end()});
    return {bytes.begin(), bytes.end()};
}

std::string synchsafe(std::size_t size) {
    std::string bytes(4, '\0');
    for (std::size_t i = 4; i-- > 0; size >>= 7) {
        bytes[i] = static_cast<char>(size & 0x7F);
    }
    return bytes;
}

std::string plain(std::size_t size) {
    std::string bytes(4, '\0');
    for (std::size_t i = 4; i-- > 0; size >>= 8) {
        bytes[i] = static_cast<char>(size & 0xFF);
    }
    return bytes;
}

std::string frame(const std::string& name,
                  std::string (*size)(std::size_t),
                  const std::string& content) {
    return name + size(content.size()) + "\0\0"s + content;
}

/** The version's first number and the tag's flags, then what stands behind the header. */
std::string tag(const std::string& version_and_flags, const std::string& body) {
    return "ID3" + version_and_flags + synchsafe(body.size()) + body;
}

TEST(Id3v2, OnlyGainFramesGoWhateverTheVersion) {
    const std::string gain = "\0replaygain_track_gain\0-3"s;
    const std::string wide = "\1\xFF\xFER\0E\0P\0L\0A\0Y\0G\0A\0I\0N\0_\0X\0\0\0-\0"s;
    const std::string text = "\0"s + std::string(199, 't');  // its size differs in both versions
    const std::string trim = "\0engiTunSMPB\0 00000000 00000210"s;  // of the old encoder
    const std::string note = "\0engA comment\0iTunSMPB"s;
    const std::string gain3 =
        frame("TXXX", plain, gain) + frame("TXXX", plain, wide) + frame("COMM", plain, trim);
    const std::string gain4 = frame("TXXX", synchsafe, gain) + frame("RVA2", synchsafe, wide);
    const std::string title3 = frame("TIT2", plain, text) + frame("COMM", plain, note);
    // Read as a size of version 2.4, this one ends on a zero, as if the padding began there.
    const std::string zeros3 = frame("PRIV", plain, std::string(300, '\0'));
    const std::string title4 =
        frame("TIT2", synchsafe, text) + frame("PRIV", synchsafe, "\xFF\xE0");
    const std::string gain2 = "TXX\0\0\x12\0REPLAYGAIN_X\0-3dB"s;
    const std::string title2 = "TT2\0\0\x09\0my title"s;
    // A zero follows each 0xFF that a reader of audio would stop at; the size does not count it.
    const std::string raw3 = "PRIV\0\0\0\3\0\0\xFF\0\xE0\1"s;
    const std::string extended3 = "\0\0\0\6\0\0\0\0\0"s;  // then the size of the padding
    const auto zeros = [](const std::string& instead) { return std::string(instead.size(), '\0'); };

    struct Row {
        const char* name;
        std::string tag;
        std::string left;
    };

    const Row rows[] = {
        {"2.3", tag("\3\0\0"s, gain3 + zeros3 + title3 + gain3),
         tag("\3\0\0"s, zeros3 + title3 + zeros(gain3 + gain3))},
        {"2.4", tag("\4\0\0"s, title4 + gain4), tag("\4\0\0"s, title4 + zeros(gain4))},
        {"2.4 with sizes as in 2.3", tag("\4\0\0"s, title3 + gain3),
         tag("\4\0\0"s, title3 + zeros(gain3))},
        {"2.4 with a footer",
         tag("\4\0\x10"s, gain4 + title4) + "3DI\4\0\x10"s +
             synchsafe(gain4.size() + title4.size()),
         tag("\4\0\x10"s, title4) + "3DI\4\0\x10"s + synchsafe(title4.size())},
        {"2.3 unsynchronised", tag("\3\0\x80"s, raw3 + frame("TXXX", plain, gain)),
         tag("\3\0\x80"s, raw3 + zeros(frame("TXXX", plain, gain)))},
        {"2.2", tag("\2\0\0"s, gain2 + title2), tag("\2\0\0"s, title2 + zeros(gain2))},
        {"2.3 with padding told", tag("\3\0\x40"s, extended3 + "\2"s + gain3 + title3 + "\0\0"s),
         tag("\3\0\x40"s,
             extended3 + static_cast<char>(2 + gain3.size()) + title3 + zeros(gain3) + "\0\0"s)},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(row.left, without_gains(row.tag));
        EXPECT_EQ(row.left, without_gains(row.left));
    }
}

TEST(Id3v2, WhatCannotBeReadStays) {
    const std::string gain = frame("RVA2", plain, "x");
    for (const std::string& odd :
         {tag("\5\0\0"s, gain), "ID3\3\0\0\0\0\0\x7F"s + gain, "ID3\3\0\0\0"s, "TAG"s, ""s,
          "ID3\3\0\x40\0\0\0\x0A\xFF\xFF\xFF\xFF\0\0\0\0\0\0"s}) {
        EXPECT_EQ(odd, without_gains(odd));
    }
}

}  // namespace
}  // namespace quorvane
