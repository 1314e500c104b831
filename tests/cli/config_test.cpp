#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "cli/options/settings.h"
#include "tests/support/fixtures.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace quorvane {
namespace {

/** A file of the system, one of the user, and a folder of recordings. */
class Config : public testing::Test {
  protected:
    Config() { std::filesystem::create_directory(dir_ / "in"); }

    Settings parse(std::vector<std::string> words) {
        words.insert(words.begin(), "quorvane");
        std::vector<const char*> argv;
        for (const std::string& word : words) {
            argv.push_back(word.c_str());
        }
        return parse_command_line(static_cast<int>(argv.size()), argv.data(),
                                  {dir_ / "system.conf", dir_ / "user.conf"});
    }

    Settings parse_folder(std::vector<std::string> words = {}) {
        words.push_back(dir_ / "in");
        return parse(words);
    }

    std::string problem(const std::vector<std::string>& words) {
        try {
            parse(words);
        } catch (const UsageError& error) {
            return error.what();
        }
        return "accepted";
    }

    TempDir dir_;
    const std::string of_folder_ = dir_ / "in/quorvane.conf";
};

TEST_F(Config, TheStrongerSourceWins) {
    write_text(dir_ / "system.conf",
               "# defaults\nfor = podcast\njobs=3\n\nsuffix = -a\nplain\nstrict = yes\n");
    write_text(dir_ / "user.conf", "suffix = -b\r\nbit-depth = 16\nplain = no\n");
    write_text(of_folder_, "suffix = -c\n  bin-size = 40\n");
    const Settings settings = parse_folder({"-b", "24"});
    EXPECT_THAT(settings.destinations, ElementsAre("podcast"));
    EXPECT_EQ(settings.jobs, 3u);
    EXPECT_EQ(settings.suffix, "-c");
    EXPECT_FALSE(settings.plain);
    EXPECT_TRUE(settings.strict);
    EXPECT_THAT(settings.tuning, testing::UnorderedElementsAre("--bit-depth=24", "--bin-size=40"));
    const std::string text = config_text(settings);
    EXPECT_THAT(text, testing::ContainsRegex("suffix = -c +\\(.*/in/quorvane.conf, line 1\\)"));
    EXPECT_THAT(text, testing::ContainsRegex("jobs = 3 +\\(.*/system.conf, line 3\\)"));
    EXPECT_THAT(text, testing::ContainsRegex("plain = no +\\(.*/user.conf, line 3\\)"));
    EXPECT_THAT(text, testing::ContainsRegex("bit-depth = 24 +\\(command line\\)"));

    const Settings bare = parse_folder({"--no-config"});
    EXPECT_THAT(bare.destinations, IsEmpty());
    EXPECT_THAT(bare.config_files, IsEmpty());
    EXPECT_EQ(bare.suffix, "-leveled");
}

TEST_F(Config, AStrongerSourceReplacesWhatItExcludes) {
    write_text(dir_ / "system.conf",
               "target = podcast\noutput-dir = out\nkeep-top\nquiet\nbin-size = 40\n");
    write_text(dir_ / "user.conf", "for = spotify\n");
    const Settings settings =
        parse({"-v", "-o", "a.wav", "--options-file", "tuning.txt", dir_ / "in"});
    EXPECT_THAT(settings.destinations, ElementsAre("spotify"));
    EXPECT_EQ(settings.output_dir, "");
    EXPECT_FALSE(settings.keep_top);
    EXPECT_FALSE(settings.quiet);
    EXPECT_THAT(settings.tuning, ElementsAre("--options-file=tuning.txt"));
    EXPECT_THAT(problem({"--no-measure", "x.wav"}),
                testing::MatchesRegex(".*--for is set by .*/user.conf, line 1 .*--no-config.*"));
}

TEST_F(Config, DefaultsOfAWatchDoNotDisturbOtherRuns) {
    write_text(dir_ / "user.conf", "\xEF\xBB\xBFon-done = /bin/true\r\nmetrics = m.prom\r\n");
    EXPECT_EQ(problem({"x.wav"}), "accepted");
    EXPECT_EQ(parse({"--watch", dir_ / "in"}).metrics, "m.prom");
    EXPECT_THAT(problem({"--metrics", "m.prom", "x.wav"}), HasSubstr("belongs to --watch"));
}

TEST_F(Config, ErrorsNameFileAndLine) {
    struct Row {
        const char* text;
        const char* message;
    };

    const Row rows[] = {
        {"\nfro = podcast", "user.conf, line 2: no option is called 'fro' (did you mean for?)"},
        {"jobs = many", "user.conf, line 1: --jobs takes a number from 1 to 256, not 'many'"},
        {"for = nowhere", "user.conf, line 1: --for takes"},
        {"jobs", "line 1: 'jobs' needs a value, as in jobs = N"},
        {"log =", "line 1: --log needs a value"},
        {"plain = perhaps", "line 1: 'plain' takes yes or no, not 'perhaps'"},
        {"strict\nstrict = no", "line 2: 'strict' is set a second time"},
        {"segment-tolerance = much", "line 1: --segment-tolerance takes a number, not 'much'"},
        {"bit-depth = 7", "line 1: --bit-depth takes 0, 8, 16, 24, 32, not '7'"},
        {"segment-cost-function = MSD1", "takes SSD0, MSD0, not 'MSD1'"},
        {"output = a.wav", "line 1: 'output' has no default; give it on the command line"},
        {"no-config", "'no-config' has no default"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.text);
        write_text(dir_ / "user.conf", row.text);
        EXPECT_THAT(problem({"x.wav"}), HasSubstr(row.message));
        EXPECT_EQ(problem({"--no-config", "x.wav"}), "accepted");
    }
    write_text(dir_ / "user.conf", std::string(70000, '#'));
    EXPECT_THAT(problem({"x.wav"}), HasSubstr("user.conf is not a list of options"));
}

TEST_F(Config, AFolderSetsOnlyHowARecordingIsLeveledAndCalled) {
    for (const char* line : {"for = podcast", "suffix = -x", "bit-depth = 24", "plain",
                             "segment-tolerance = 3", "reduce-loud-noise-floor = -40"}) {
        write_text(of_folder_, line);
        EXPECT_EQ(problem({dir_ / "in"}), "accepted") << line;
        EXPECT_EQ(problem({"--watch", dir_ / "in"}), "accepted") << line;
    }
    for (const char* line :
         {"output-dir = /tmp", "force", "log = /tmp/x", "on-done = /bin/true", "jobs = 9",
          "options-file = /etc/passwd", "settle = 0", "json = -", "target = podcast"}) {
        write_text(of_folder_, line);
        EXPECT_THAT(problem({dir_ / "in"}), HasSubstr("in/quorvane.conf, line 1: the file of"))
            << line;
        EXPECT_THAT(problem({"--watch", dir_ / "in"}), HasSubstr("line 1: the file of")) << line;
    }
}

TEST_F(Config, TheFolderIsThatOfThePathsAndNoneAboveIt) {
    std::filesystem::create_directories(dir_ / "in/below");
    write_text(of_folder_, "suffix = -x\n");
    EXPECT_EQ(parse({dir_ / "in/a.wav", dir_ / "in/b.wav"}).suffix, "-x");
    EXPECT_EQ(parse({dir_ / "in/below"}).suffix, "-leveled");
    EXPECT_EQ(parse({dir_ / "in/below/a.wav"}).suffix, "-leveled");
    EXPECT_EQ(parse({"-"}).suffix, "-leveled");
    EXPECT_THAT(problem({dir_ / "in", dir_ / "in/below"}),
                HasSubstr("in/quorvane.conf would set options for a part of these PATHs only"));
}

TEST_F(Config, OnlyRegularFilesOfTheUserOrRootAreRead) {
    write_text(dir_ / "real", "suffix = -x\n");
    const auto ignored = [&] {
        const Settings settings = parse_folder();
        EXPECT_EQ(settings.suffix, "-leveled");
        return settings.ignored_config;
    };
    ASSERT_EQ(symlink((dir_ / "real").c_str(), of_folder_.c_str()), 0);
    EXPECT_THAT(ignored(), ElementsAre(of_folder_ + " is not read: it is a link"));
    ASSERT_EQ(unlink(of_folder_.c_str()), 0);
    ASSERT_EQ(mkfifo(of_folder_.c_str(), 0600), 0);
    EXPECT_THAT(ignored(), ElementsAre(of_folder_ + " is not read: it is not a regular file"));
    ASSERT_EQ(unlink(of_folder_.c_str()), 0);
    write_text(of_folder_, "suffix = -x\n");
    std::filesystem::permissions(of_folder_, std::filesystem::perms(0666));
    EXPECT_THAT(ignored(), ElementsAre(of_folder_ + " is not read: every user may write to it"));
    ASSERT_EQ(unlink(of_folder_.c_str()), 0);

    ASSERT_EQ(symlink((dir_ / "real").c_str(), (dir_ / "user.conf").c_str()), 0);
    EXPECT_EQ(parse_folder().suffix, "-x") << "a user may keep it elsewhere";
    if (chown((dir_ / "real").c_str(), 65534, static_cast<gid_t>(-1)) != 0) {
        GTEST_SKIP() << "no right to give a file away";
    }
    EXPECT_THAT(ignored(), ElementsAre(HasSubstr("user.conf is not read: it belongs to another")));
}

}  // namespace
}  // namespace quorvane
