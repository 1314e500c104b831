#include <chrono>
#include <future>
#include <thread>

#include "tests/support/batch_run.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

namespace {

namespace fs = std::filesystem;

/** Runs over folders in which earlier runs have left outputs and results. */
class ArchiveRuns : public BatchRun {
  protected:
    // Another byte in the middle, at the same size and time.
    void rot(const std::string& name) {
        const auto time = fs::last_write_time(dir_ / name);
        std::string bytes = read_text(dir_ / name);
        bytes[bytes.size() / 2] = static_cast<char>(bytes[bytes.size() / 2] ^ 1);
        write_text(dir_ / name, bytes);
        fs::last_write_time(dir_ / name, time);
    }

    std::string status_in(const std::string& words, const std::string& input) {
        return facts(run("--json - " + words).out).at(input)["status"];
    }
};

TEST_F(ArchiveRuns, AContentThatIsNotTheRecordedOneIsDamageAndAFailure) {
    talk("in/a.wav");
    talk("in/b.wav");
    ASSERT_EQ(0, run("-q in").status);
    EXPECT_EQ(0, run("-q --verify in").status);
    rot("in/a-leveled.wav");
    rot("in/b.wav");
    EXPECT_EQ(0, run("in").status) << "size and time are as they were";
    const ProgramResult result = run("-q --verify in");
    EXPECT_EQ(1, result.status);
    EXPECT_THAT(result.err, HasSubstr("damaged in/a.wav: the content of in/a-leveled.wav"));
    EXPECT_THAT(result.err, HasSubstr("damaged in/b.wav: the content of the input"));
    EXPECT_EQ("damaged", status_in("--verify in", "in/a.wav"));
    EXPECT_EQ("damaged", status_in("--verify --redo-changed in", "in/a.wav"));
    EXPECT_THAT(run("--verify in").out, HasSubstr("2 damaged in"));
}

TEST_F(ArchiveRuns, RecordsPlansAndResultsOfVersion3AreRead) {
    fs::copy(RECORDINGS "/version_3", dir_ / "old");
    fs::rename(dir_ / "old/records.jsonl", dir_ / "old/.quorvane.jsonl");
    const std::string outputs = read_text(dir_ / "old/talk-leveled.wav");
    EXPECT_THAT(run("--plain old/talk.wav old/silent.wav").out, HasSubstr("2 up to date in"));
    EXPECT_THAT(run("old/talk.wav old/silent.wav").out,
                HasSubstr("2 outputs made by an earlier version of the arithmetic were kept"));

    // A plan has the paths of the folder that it was made in.
    const ProgramResult planned =
        run_program("cd " + dir_ / "old" + " && " QUORVANE_AT_ONCE "--plain --plan plan.jsonl");
    EXPECT_EQ(1, planned.status);
    EXPECT_THAT(planned.out, HasSubstr("2 up to date, 1 failed in"));
    EXPECT_THAT(planned.err, HasSubstr("failed broken.wav: "));

    const ProgramResult merged = run("merge old/plan.jsonl old/results.jsonl --json all.jsonl");
    EXPECT_EQ(1, merged.status);
    EXPECT_THAT(merged.out, HasSubstr("1 leveled, 1 copied unchanged, 1 failed in"));
    EXPECT_EQ("failed broken.wav: it is no audio file that can be read\n", merged.err);
    const auto talk = facts(read_text(dir_ / "all.jsonl")).at("talk.wav");
    EXPECT_EQ("leveled", talk["status"]);
    EXPECT_EQ(-18.495, talk["after"]["integrated_lufs"]);
    EXPECT_EQ(0.004, talk["leveling"]["passages"][0]["gain_db"]);
    EXPECT_EQ(outputs, read_text(dir_ / "old/talk-leveled.wav"));
}

TEST_F(ArchiveRuns, ADestinationRenewsWhatIsOursAndReportsWhatItKept) {
    talk("in/a.wav");
    const auto destination = [&](const std::string& words) {
        return facts(run("--json - " + words).out)["in/a.wav"]["publishing"]["destination"];
    };
    ASSERT_EQ(0, run("-q in").status);
    EXPECT_EQ("podcast", destination("--for podcast in"));
    EXPECT_EQ("atsc", destination("--for atsc in"));
    EXPECT_EQ("up-to-date", status_in("--for atsc in", "in/a.wav"));
    EXPECT_EQ("skipped", status_in("in", "in/a.wav"));
    EXPECT_EQ(0, run("in").status);

    write_text(dir_ / "in/a-leveled.wav", "mine");
    const ProgramResult kept = run("--for podcast in");
    EXPECT_EQ(4, kept.status);
    EXPECT_THAT(kept.out, HasSubstr("a-leveled.wav exists, but was changed after"));
    EXPECT_EQ("mine", read_text(dir_ / "in/a-leveled.wav"));
}

TEST_F(ArchiveRuns, ASearchLeavesOutputsAloneWhateverTheirNames) {
    talk("in/talk.wav");
    talk("in/sub/other.wav");
    ASSERT_EQ(0, run("-q in").status);
    // The inputs that a dry run would level, by name.
    const auto inputs = [&](const std::string& words) {
        std::vector<std::string> names;
        for (const auto& [input, json] : facts(run("-n --json - " + words).out)) {
            if (json["status"] == "planned") {
                names.push_back(input);
            }
        }
        return names;
    };
    const auto originals = ElementsAre("in/sub/other.wav", "in/talk.wav");
    EXPECT_THAT(inputs("--suffix _v2 in"), originals);
    EXPECT_THAT(inputs("-d out --suffix '' in"), originals);

    ASSERT_EQ(0, run("-q -d in/out --suffix '' in").status);
    EXPECT_THAT(inputs("-d again in"), originals);
    EXPECT_THAT(inputs("-d again --suffix '' in"), originals);
    const ProgramResult only = run("-d again in/out");
    EXPECT_EQ(1, only.status);
    EXPECT_THAT(only.err, HasSubstr("in/out: holds only outputs of earlier runs"));
    EXPECT_EQ(0, run("-q --analyze in/out").status)
        << "measuring outputs does not level them again";

    const ProgramResult named = run("-d again --suffix '' in/out/talk.wav in/talk-leveled.wav");
    EXPECT_EQ(0, named.status) << named.err;
    EXPECT_THAT(named.out, HasSubstr("note: in/out/talk.wav: is an output of an earlier run"));
    EXPECT_EQ(2u, outputs_in("again").size());

    talk("in/out/talk.wav", 3);
    EXPECT_THAT(inputs("-d third in/out"), ElementsAre("in/out/talk.wav")) << "another recording";
    talk("in/talk-leveled.wav", 3);
    EXPECT_THAT(run("in").out, HasSubstr("skipped in/talk-leveled.wav: is the output of"));
    fs::remove(dir_ / "in/talk.wav");
    EXPECT_THAT(inputs("in"), ElementsAre("in/talk-leveled.wav"));
}

TEST_F(ArchiveRuns, AnInputThatHasGrownIsLeveledAgainUnasked) {
    talk("in/a.wav", 2);
    ASSERT_EQ(0, run("-q -d out in").status);
    talk("in/a.wav", 4);
    EXPECT_EQ("leveled", status_in("-d out in", "in/a.wav"));
    EXPECT_EQ(64000, sound_info(dir_ / "out/a-leveled.wav").frames);
    talk("in/a.wav", 3);
    EXPECT_EQ("skipped", status_in("-d out in", "in/a.wav"))
        << "a smaller file was not made of a partial copy";

    // Another recording, however large, is not a later state of the first.
    talk("other/a.wav", 6);
    EXPECT_EQ("skipped", status_in("-d out other", "other/a.wav"));
    EXPECT_EQ("skipped", status_in("-d out --redo-changed other", "other/a.wav"));
    EXPECT_THAT(run("-d out other").out, HasSubstr("leveled from"));
    // A run never replaces one that was edited.
    write_text(dir_ / "out/a-leveled.wav", "mine");
    talk("in/a.wav", 5);
    EXPECT_EQ("skipped", status_in("-d out in", "in/a.wav"));
    EXPECT_EQ("mine", read_text(dir_ / "out/a-leveled.wav"));
}

TEST_F(ArchiveRuns, ASearchWaitsForFilesThatHaveJustChanged) {
    using Clock = fs::file_time_type::clock;
    for (const char* name : {"in/new.wav", "in/old.wav", "in/ahead.wav", "named.wav"}) {
        talk(name);
    }
    fs::last_write_time(dir_ / "in/old.wav", Clock::now() - std::chrono::hours(1));
    fs::last_write_time(dir_ / "in/ahead.wav", Clock::now() + std::chrono::hours(1));
    auto ended = std::async(std::launch::async, [this] {
        return run_program("cd " + dir_.path() +
                           " && " QUORVANE " --settle 60 --log log -d out named.wav in");
    });
    // It says so when the others are at their end. A minute later it would give up.
    const std::string wait = "waiting up to a minute for in/new.wav, changed less than 60 s ago";
    while (!file_exists(dir_ / "log") || read_text(dir_ / "log").find(wait) == std::string::npos) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    EXPECT_EQ(3u, outputs_in("out").size());
    talk("in/new.wav", 5);
    fs::last_write_time(dir_ / "in/new.wav", Clock::now() - std::chrono::hours(1));
    EXPECT_EQ(0, ended.get().status);
    EXPECT_EQ(80000, sound_info(dir_ / "out/new-leveled.wav").frames);
}

TEST_F(ArchiveRuns, FilesWhoseOutputsClashCostThemselvesOnly) {
    for (const char* name : {"x/a.wav", "y/a.wav", "y/b.wav"}) {
        talk(name, 1);
    }
    const ProgramResult result = run("-d out x y");
    EXPECT_EQ(1, result.status);
    for (const char* line :
         {"failed x/a.wav: its output out/a-leveled.wav would be that of y/a.wav",
          "failed y/a.wav: its output out/a-leveled.wav would be that of x/a.wav",
          "--keep-top keeps the name of each PATH as a folder below out"}) {
        EXPECT_THAT(result.err, HasSubstr(line));
    }
    EXPECT_THAT(outputs_in("out"), ElementsAre("b-leveled.wav"));

    EXPECT_EQ(0, run("-q -d top --keep-top x/ ./y").status);
    EXPECT_THAT(outputs_in("top"), ElementsAre("x", "y"));
    EXPECT_EQ(0, run("-q -d named --keep-top x/a.wav y/a.wav").status);
    EXPECT_TRUE(file_exists(dir_ / "named/y/a-leveled.wav"));
}

TEST_F(ArchiveRuns, AnOutputStaysWhereAnEarlierRunPutIt) {
    talk("tree/Band 1/s.wav", 1);
    talk("tree/Band 1/t.wav", 1);
    ASSERT_EQ(0, run("-q -d out tree").status);
    for (const char* words : {"'tree/Band 1'", "--keep-top tree", "'tree/Band 1/s.wav'", "tree"}) {
        EXPECT_EQ("up-to-date", status_in(std::string("-d out ") + words, "tree/Band 1/s.wav"));
    }
    EXPECT_THAT(outputs_in("out"), ElementsAre("Band 1"));
    talk("tree/Band 1/s.wav", 2);
    EXPECT_EQ(0, run("-q -d out 'tree/Band 1'").status);
    EXPECT_EQ(32000, sound_info(dir_ / "out/Band 1/s-leveled.wav").frames);
    // A recording of the same name from elsewhere is another one.
    talk("s.wav", 1);
    EXPECT_EQ(0, run("-q -d out s.wav").status);
    EXPECT_TRUE(file_exists(dir_ / "out/s-leveled.wav"));
    EXPECT_EQ(0, run("-q -f -d out 'tree/Band 1/t.wav'").status);
    EXPECT_TRUE(file_exists(dir_ / "out/t-leveled.wav")) << "as the command line says";
}

TEST_F(ArchiveRuns, FailuresAreListedAtTheEndAndInAFile) {
    talk("in/good.wav", 1);
    for (int i = 10; i < 35; ++i) {
        write_text(dir_ / ("in/" + std::to_string(i) + ".wav"), "nothing to hear");
    }
    ProgramResult result = run("--failed list in nowhere.wav");
    EXPECT_EQ(1, result.status);
    // After the counts: twenty of them, and the rest as a number.
    const std::string end = result.out.substr(result.out.find("1 leveled, 26 failed in"));
    EXPECT_THAT(end, HasSubstr("\nfailed in/10.wav: cannot be read as audio"));
    EXPECT_THAT(end, HasSubstr("\nfailed in/29.wav: "));
    EXPECT_THAT(end, Not(HasSubstr("in/30.wav")));
    EXPECT_THAT(end, HasSubstr("\nfailed 6 more (--failed FILE lists them all)\n"));
    const std::string list = read_text(dir_ / "list");
    EXPECT_EQ("in/10.wav\nin/11.wav\n", list.substr(0, 20));
    EXPECT_EQ("nowhere.wav\n", list.substr(list.size() - 12));

    for (int i = 10; i < 35; ++i) {
        talk("in/" + std::to_string(i) + ".wav", 0.5);
    }
    result = run("-q --files-from list --failed again");
    EXPECT_EQ(1, result.status);
    EXPECT_EQ("nowhere.wav\n", read_text(dir_ / "again"));
    EXPECT_EQ(27u + 26u, names_in("in").size()) << "26 recordings, their outputs and the record";

    write_text(dir_ / "new\nline.wav", "");
    EXPECT_THAT(run("-q --failed again new*.wav").err, HasSubstr("--null writes it"));
    EXPECT_EQ(1, run("-q -0 --failed again new*.wav").status);
    EXPECT_EQ(std::string("new\nline.wav\0", 13), read_text(dir_ / "again"));
    for (const char* words : {"--failed in/good.wav in/good.wav", "--failed - in/good.wav",
                              "--failed list --json list in/good.wav", "-0 in/good.wav"}) {
        EXPECT_EQ(2, run(words).status) << words;
    }
    EXPECT_THAT(run("-q --failed /dev/full nowhere.wav").err,
                HasSubstr("the list --failed /dev/full cannot be written"));
}

TEST_F(ArchiveRuns, AFolderThatCannotBeWrittenIsOneLine) {
    talk("in/sub/good.wav", 1);
    for (int i = 0; i < 5; ++i) {
        talk("in/" + std::to_string(i) + ".wav", 1);
    }
    write_text(dir_ / "file", "");
    for (const char* option : {"-n ", "", "--json - "}) {
        const ProgramResult result = run(option + std::string("-d file in"));
        EXPECT_EQ(1, result.status);
        const std::string line = "failed 6 files, the first in/0.wav: the folder ";
        EXPECT_THAT(result.err, HasSubstr(line));
        EXPECT_THAT(result.err, HasSubstr("(-d DIR writes to another folder)"));
        EXPECT_THAT(result.err, Not(HasSubstr("failed in/"))) << "one line for all";
    }
}

TEST_F(ArchiveRuns, ResultsThatAreNotWholeMakeTheMergeAFailure) {
    talk("in/a.wav");
    ASSERT_EQ(0, run("-q --no-curves --json one in").status);
    const std::string line = read_text(dir_ / "one");
    std::string unknown = line;
    unknown.replace(unknown.find("\"leveled\""), 9, "\"done\"");
    const std::pair<std::string, const char*> rows[] = {
        {"{garbage\n", "two: line 1 is not a whole result"},
        {line.substr(0, line.size() / 2), "two: line 1 is not a whole result"},
        {line + line.substr(0, 20) + "\n{", "two: line 2 (the first of 2) is not a whole result"},
        {unknown, "two: line 1 is not a whole result"},
        {"{}\n", "two: line 1 is not a whole result"}};
    for (const auto& [text, cause] : rows) {
        write_text(dir_ / "two", text);
        const ProgramResult merged = run("merge -q one two");
        EXPECT_EQ(1, merged.status) << text;
        EXPECT_THAT(merged.err, HasSubstr(cause));
    }
    write_text(dir_ / "two", "");
    EXPECT_EQ(0, run("merge -q one two").status) << "a task that was killed before its first file";
    EXPECT_EQ(1, run("merge -q two").status);
}

TEST_F(ArchiveRuns, ALaterResultTakesThePlaceOfACutLine) {
    talk("in/a.wav");
    talk("in/b.wav");
    ASSERT_EQ(0, run("-q -n --json plan in").status);
    ASSERT_EQ(0, run("-q --json all in").status);
    const std::string all = read_text(dir_ / "all");
    const std::string second = all.substr(all.find('\n') + 1);
    const std::string half = second.substr(0, second.size() / 2);

    const struct {
        std::string text;
        const char* files;
        int status;
    } rows[] = {{half, "plan cut all", 0},
                {all.substr(0, all.size() - 1), "plan cut", 0},
                {half, "plan all cut", 1},  // what is unknown came last
                {half, "cut plan", 1},
                {half + "\n" + all, "plan cut all", 0},
                {half + half, "plan cut all", 1},
                {second.substr(0, second.find("in/b.wav")), "plan cut all", 1},
                {"{\n" + half, "plan cut all", 1}};

    for (const auto& row : rows) {
        write_text(dir_ / "cut", row.text);
        EXPECT_EQ(row.status, run(std::string("merge -q ") + row.files).status)
            << row.files << ": " << row.text.size() << " bytes";
    }
}

TEST_F(ArchiveRuns, WordsThatCannotBeWrittenAreAFailure) {
    talk("a.wav");
    ASSERT_EQ(0, run("-q --json one a.wav").status);
    for (const char* words :
         {"--help", "--version", "--analyze a.wav", "merge one", "a.wav", "-n a.wav"}) {
        const ProgramResult full = run(words + std::string(" >/dev/full"));
        EXPECT_EQ(1, full.status) << words;
        EXPECT_THAT(full.err, HasSubstr("standard output cannot be written: No space left"));
    }
    const ProgramResult logged = run("-q --log /dev/full a.wav");
    EXPECT_EQ(1, logged.status);
    EXPECT_THAT(logged.err, HasSubstr("the log /dev/full cannot be written: No space left"));
    EXPECT_THAT(run("-f a.wav | true").err, Not(HasSubstr("written"))) << "a reader that left";
}

}  // namespace
