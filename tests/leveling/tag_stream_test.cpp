#include "leveling/audio/tag_stream.h"

#include <gtest/gtest.h>

#include <string>
#include <system_error>

#include "tests/support/fixtures.h"

namespace quorvane {
namespace {

// Tails longer and shorter than the block that is moved at a time, both ways.
TEST(TagStream, InsertingAndRemovingMoveWhatLiesBehind) {
    struct Row {
        std::size_t size;
        std::size_t at;
        std::size_t replace;
        std::size_t data;
    };

    for (const Row& row :
         {Row{10, 3, 2, 2}, Row{10, 3, 0, 5}, Row{10, 3, 5, 1}, Row{10, 10, 0, 4},
          Row{200000, 1, 0, 70000}, Row{200000, 1, 70000, 5}, Row{200000, 1000, 3, 0}}) {
        SCOPED_TRACE(std::to_string(row.size) + ", " + std::to_string(row.replace) + " by " +
                     std::to_string(row.data));
        const TempDir dir;
        std::string text;
        for (std::size_t i = 0; i < row.size; ++i) {
            text += static_cast<char>('a' + i * 7 % 23);
        }
        write_text(dir / "file", text);
        const std::string data(row.data, 'X');
        TagStream stream(dir / "file", TagStream::For::Writing);
        stream.insert(TagLib::ByteVector(data.data(), static_cast<unsigned>(data.size())),
                      static_cast<TagStream::Start>(row.at), row.replace);
        EXPECT_NO_THROW(stream.require_no_error());
        EXPECT_EQ(text.replace(row.at, row.replace, data), read_text(dir / "file"));
    }
}

TEST(TagStream, AFullDiskIsToldAndStaysTold) {
    TagStream stream("/dev/full", TagStream::For::Writing);
    stream.writeBlock("tags");
    stream.seek(0);
    stream.readBlock(1);
    EXPECT_THROW(stream.require_no_error(), std::system_error);
}

}  // namespace
}  // namespace quorvane
