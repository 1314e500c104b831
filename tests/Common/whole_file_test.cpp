#include "Common/files/whole_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <boost/filesystem.hpp>
#include <cstdlib>

#include "Common/files/copy_file.h"
#include "tests/support/fixtures.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

TEST(WholeFile, CopiesAndMovesReplaceTheTargetAndLeaveNothingElse) {
    const TempDir dir;
    write_text(dir / "from", "new");
    write_text(dir / "to", "old");
    copy_whole(dir / "from", dir / "to");
    EXPECT_EQ("new", read_text(dir / "to"));
    move_whole(dir / "from", dir / "moved");
    EXPECT_EQ("new", read_text(dir / "moved"));
    EXPECT_THAT(dir.entries(), ElementsAre("moved", "to"));
}

TEST(WholeFile, AFailureNamesTheFilesAndChangesNothing) {
    const TempDir dir;
    write_text(dir / "from", "new");
    boost::filesystem::create_directory(dir / "folder");
    EXPECT_THROW(copy_whole(dir / "from", dir / "folder"), std::runtime_error);
    EXPECT_THROW(move_whole(dir / "from", dir / "folder"), std::runtime_error);
    try {
        move_whole(dir / "from", dir / "missing/to");
        FAIL();
    } catch (const std::runtime_error& error) {
        EXPECT_THAT(error.what(), HasSubstr(dir / "missing/to"));
        EXPECT_THAT(error.what(), HasSubstr("No such file or directory"));
    }
    EXPECT_EQ("new", read_text(dir / "from"));
    EXPECT_THAT(dir.entries(), ElementsAre("folder", "from"));
}

TEST(WholeFile, AMoveAcrossFileSystemsArrivesWhole) {
    const std::string other = "/dev/shm/quorvane-test-" + std::to_string(getpid());
    boost::system::error_code error;
    if (!boost::filesystem::create_directory(other, error)) {
        GTEST_SKIP() << "no second file system to move to";
    }
    const TempDir dir;
    write_text(dir / "from", std::string(300000, 'x'));
    move_whole(dir / "from", other + "/to");
    EXPECT_EQ(std::string(300000, 'x'), read_text(other + "/to"));
    EXPECT_THAT(dir.entries(), ElementsAre());
    boost::filesystem::remove_all(other);
}

TEST(CopyFile, ReplacesAnEmptyFolderAndNoOther) {
    const TempDir dir;
    write_text(dir / "file", "content");
    boost::filesystem::create_directory(dir / "folder");
    EXPECT_EQ(0, copy_file(dir / "file", dir / "folder"));
    EXPECT_EQ("content", read_text(dir / "folder"));
    boost::filesystem::create_directories(dir / "full/inner");
    const CapturedOutput captured;
    EXPECT_EQ(1, copy_file(dir / "file", dir / "full"));
    EXPECT_THAT(captured.err(), HasSubstr(dir / "full"));
    EXPECT_TRUE(file_exists(dir / "full/inner"));
}

TEST(CopyFile, LeavesAFileCopiedOntoItselfAlone) {
    const TempDir dir;
    write_text(dir / "file", "content");
    boost::filesystem::create_symlink(dir / "file", dir / "link");
    EXPECT_EQ(0, copy_file(dir / "file", dir / "file"));
    EXPECT_EQ(0, copy_file(dir / "file", dir / "link"));
    EXPECT_EQ("content", read_text(dir / "file"));
    EXPECT_TRUE(boost::filesystem::is_symlink(dir / "link"));

    const CapturedOutput captured;
    EXPECT_EQ(1, copy_file(dir / "missing", dir / "to"));
    EXPECT_THAT(captured.err(), HasSubstr(dir / "missing"));
}

}  // namespace
