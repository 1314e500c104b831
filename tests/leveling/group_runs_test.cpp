#include <gmock/gmock.h>

#include <filesystem>
#include <set>

#include "tests/support/batch_run.h"
#include "tests/support/talk_tracks.h"

using testing::ElementsAre;
using testing::HasSubstr;

namespace {

namespace fs = std::filesystem;

/** Conversations as a run, a plan, a merge and the records of outputs know them. */
class GroupRuns : public BatchRun {
  protected:
    GroupRuns() {
        write_talk(dir_ / "one", 6);
        write_talk(dir_ / "two", 6, 9);
    }

    /** The folders of the inputs that a run's JSON has lines about, and how many lines. */
    static std::pair<std::set<std::string>, int> folders(const std::string& lines) {
        std::pair<std::set<std::string>, int> found;
        std::istringstream in(lines);
        for (std::string line; std::getline(in, line); ++found.second) {
            const std::string input = nlohmann::json::parse(line)["input"];
            found.first.insert(fs::path(input).parent_path().string());
        }
        return found;
    }
};

TEST_F(GroupRuns, EachFolderIsAConversation) {
    talk("alone/a.wav");
    const ProgramResult result = run("--together one two alone --mix mix.wav");
    EXPECT_EQ(1, result.status);
    EXPECT_THAT(result.err, HasSubstr("alone/a.wav: --together takes the files of each folder as "
                                      "one conversation of 2 to 64 tracks, and this folder has 1"));
    EXPECT_THAT(outputs_in("alone"), ElementsAre("a.wav"));
    for (const char* folder : {"one", "two"}) {
        EXPECT_THAT(outputs_in(folder), ElementsAre("guest-leveled.wav", "guest.wav",
                                                    "host-leveled.wav", "host.wav", "mix.wav"));
    }
    EXPECT_THAT(run("--together one two --mix mix.wav").out, HasSubstr("6 up to date"));
    // The mixes have no single place.
    EXPECT_EQ(2, run("--together one two --mix here/mix.wav").status);
    // A failure costs one conversation.
    write_text(dir_ / "two/host.wav", "RIFF");
    const ProgramResult failed =
        run("-f -d out --keep-top --together one two --mix mix.wav --max-failures 3 --failed list");
    EXPECT_EQ(1, failed.status);
    EXPECT_THAT(failed.err, HasSubstr("its conversation was not leveled, as two/host.wav failed"));
    EXPECT_EQ("two/guest.wav\ntwo/host.wav\n", read_text(dir_ / "list"));
    // Named files are one conversation, wherever they are.
    write_text(dir_ / "tracks", "one/host.wav\none/guest.wav\n");
    const ProgramResult listed = run("-d listed --together --files-from tracks");
    EXPECT_EQ(0, listed.status) << listed.err;
    EXPECT_EQ(read_text(dir_ / "one/host-leveled.wav"),
              read_text(dir_ / "listed/host-leveled.wav"));
}

TEST_F(GroupRuns, APlanItsShardsAndAMergeHoldAConversationWhole) {
    const std::string words = " --together --mix mix.flac --for podcast --json ";
    ASSERT_EQ(0, run("-n one two" + words + "plan").status);
    EXPECT_EQ(6, folders(read_text(dir_ / "plan")).second);
    for (const char* shard : {"0", "1"}) {
        const ProgramResult result =
            run("--plan plan --shard " + std::string(shard) + "/2" + words + shard);
        EXPECT_EQ(0, result.status) << result.err;
        const auto [of, lines] = folders(read_text(dir_ / shard));
        EXPECT_EQ(1U, of.size());
        EXPECT_EQ(3, lines);
    }
    const ProgramResult merged = run("merge plan 0 1 --json all");
    EXPECT_EQ(0, merged.status) << merged.err;
    EXPECT_THAT(merged.out, HasSubstr("6 leveled"));
    EXPECT_EQ(6, folders(read_text(dir_ / "all")).second);
    // Shards of the folders themselves are cut the same.
    EXPECT_THAT(run("one two --shard 0/2" + words + "-").out, HasSubstr("\"up-to-date\""));

    // A line alone does not make a conversation.
    const std::string plan = read_text(dir_ / "plan");
    write_text(dir_ / "part", plan.substr(0, plan.find('\n') + 1));
    const ProgramResult part = run("-f --plan part --json part.jsonl");
    EXPECT_EQ(1, part.status);
    EXPECT_THAT(part.err, HasSubstr("the plan has 1 of the 2 tracks of its conversation"));
    // Words that the plan knows nothing of.
    ASSERT_EQ(0, run("-n --separate one --json single").status);
    EXPECT_EQ(2, run("--plan single --together").status);
}

// Of two outputs a run that is killed leaves one old and one new: each fits its own input.
TEST_F(GroupRuns, AnOutputWithAnEarlierStateOfAnotherTrackIsMadeAgain) {
    const std::string words = "--together one --mix one/mix.wav";
    ASSERT_EQ(0, run(words).status);
    const auto copy = [&](const std::string& from, const std::string& to) {
        return run_program("cp -p '" + (dir_ / from) + "' '" + (dir_ / to) + "'").status;
    };
    ASSERT_EQ(0, copy("one/host-leveled.wav", "tmp/old.wav"));
    write_talk(dir_ / "short", 4);
    ASSERT_EQ(0, copy("short/guest.wav", "one/guest.wav"));
    ASSERT_EQ(0, run(words + " --redo-changed").status);
    EXPECT_THAT(run(words).out, HasSubstr("3 up to date"));
    EXPECT_THAT(read_text(dir_ / "one/.quorvane.jsonl"), HasSubstr(R"("others":[{"input":")"));
    const bool is_same =
        read_text(dir_ / "one/host-leveled.wav") == read_text(dir_ / "tmp/old.wav");
    EXPECT_FALSE(is_same);
    ASSERT_EQ(0, copy("tmp/old.wav", "one/host-leveled.wav"));
    fs::remove(dir_ / "tmp/old.wav");
    EXPECT_THAT(run(words).out, HasSubstr("3 leveled"));
    EXPECT_THAT(run(words).out, HasSubstr("3 up to date"));
}

}  // namespace
