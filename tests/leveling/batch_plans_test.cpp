#include <gmock/gmock.h>

#include <boost/algorithm/string/replace.hpp>
#include <cmath>
#include <filesystem>

#include "tests/support/batch_run.h"
#include "tests/support/talk_tracks.h"

using testing::ElementsAre;
using testing::HasSubstr;

namespace {

namespace fs = std::filesystem;

class BatchPlans : public BatchRun {};

TEST_F(BatchPlans, ShardsOfAPlanAreMergedIntoWhatASingleRunTells) {
    for (int i = 0; i < 5; ++i) {
        talk("in/" + std::to_string(i) + ".wav", 1 + i);
    }
    write_text(dir_ / "in/bad.wav", "nothing to hear");
    EXPECT_EQ(1, run("-d out in nowhere.wav -n --json plan").status);
    EXPECT_EQ(1, run("-d single in nowhere.wav --json one.jsonl --report r1").status);
    // The first task dies and comes again; one shard is worked on twice at the same time.
    run("--plan plan --shard 0/3 --max-failures 1 --json - >0.0");
    run_program("cd " + dir_.path() +
                " && for t in 0.1 1.0 2.0 2.1; do " QUORVANE
                " --plan plan --shard ${t%.*}/3 --json - --log log >$t 2>/dev/null & done; wait");
    const ProgramResult merged = run("merge plan ?.? --json all.jsonl --report r2");
    EXPECT_EQ(1, merged.status);
    EXPECT_THAT(merged.out, HasSubstr("5 leveled, 2 failed"));
    EXPECT_THAT(merged.err, HasSubstr("failed nowhere.wav: does not exist\n"));
    auto one = facts(read_text(dir_ / "one.jsonl"));
    auto all = facts(read_text(dir_ / "all.jsonl"));
    ASSERT_EQ(7u, all.size());
    for (auto& [input, json] : all) {
        for (const char* own : {"elapsed_s", "output", "bytes"}) {
            json.erase(own);
            one.at(input).erase(own);
        }
        EXPECT_EQ(one.at(input), json);
    }
    EXPECT_EQ(names_in("r1"), names_in("r2"));
    EXPECT_EQ(read_text(dir_ / "single/4-leveled.wav"), read_text(dir_ / "out/4-leveled.wav"));
    const std::string log = read_text(dir_ / "log");
    EXPECT_EQ(5, run_program("grep -c ' leveled in/' " + dir_ / "log").out[0] - '0')
        << "none was done twice:\n"
        << log;
}

TEST_F(BatchPlans, TheMergeKeepsTheVerdictAndTakesNothingElseForResults) {
    talk("in/a.wav");
    EXPECT_EQ(4, run("--analyze --for podcast --json one.jsonl in").status);
    EXPECT_EQ(4, run("merge --for podcast --json all.jsonl one.jsonl").status);
    EXPECT_EQ(read_text(dir_ / "one.jsonl"), read_text(dir_ / "all.jsonl"));
    EXPECT_EQ(0, run("merge one.jsonl").status);

    const std::string sound = read_text(dir_ / "in/a.wav");
    const std::pair<const char*, int> refused[] = {
        {"in", 1}, {"missing", 1}, {"in/a.wav", 2}, {"one.jsonl --json in/a.wav", 2}, {"", 2}};
    for (const auto& [words, status] : refused) {
        EXPECT_EQ(status, run(std::string("merge ") + words).status) << words;
    }
    EXPECT_EQ(sound, read_text(dir_ / "in/a.wav"));
}

TEST_F(BatchPlans, APlanAndALogPassTheChecksOfACommandLine) {
    talk("in/a.wav", 1);
    talk("in/b.wav", 1);
    ASSERT_EQ(0, run("-n in --json plan").status);
    const std::string plan = read_text(dir_ / "plan");
    const std::string original = read_text(dir_ / "in/a.wav");
    const auto with_output = [&](const std::string& from, const std::string& to) {
        return boost::replace_all_copy(plan, "in/" + from + "-leveled.wav", "in/" + to);
    };
    write_text(dir_ / "self", with_output("a", "a.wav"));
    write_text(dir_ / "other", with_output("b", "a.wav"));
    write_text(dir_ / "twice", with_output("b", "a-leveled.wav"));
    write_text(dir_ / "kind", with_output("b", "b.flac"));
    for (const char* words :
         {"-f --plan self", "-f --plan other", "-f --plan twice", "-f --plan kind", "-f --plan in",
          "-f --plan plan --json plan", "--plan plan --shard 1/2 --log in/a.wav",
          "in --log in/a.wav", "in/b.wav --log in/a.wav", "merge plan --log in/a.wav"}) {
        EXPECT_EQ(2, run(words).status) << words;
    }
    EXPECT_EQ(original, read_text(dir_ / "in/a.wav"));
    EXPECT_EQ(plan, read_text(dir_ / "plan"));
    EXPECT_THAT(names_in("in"), ElementsAre("a.wav", "b.wav"));
}

TEST_F(BatchPlans, APlanKeepsWhatItSkipsAndWritesNothingWhereItIsOnlyMeasured) {
    talk("in/a.wav", 1);
    talk("in/b.wav", 1);
    // Is the output of another input, for the run in which both are named.
    talk("in/a-leveled.wav", 1);
    fs::create_symlink("b.wav", dir_ / "in/link.wav");
    ASSERT_EQ(0, run("-n in in/a-leveled.wav --json plan").status);
    const ProgramResult measured = run("--analyze --plan plan");
    EXPECT_EQ(0, measured.status) << measured.err;
    EXPECT_THAT(measured.out, HasSubstr("2 measured, 2 skipped"));
    EXPECT_THAT(names_in("in"), ElementsAre("a-leveled.wav", "a.wav", "b.wav", "link.wav"));
    ASSERT_EQ(0, run("-n -d out in in/a-leveled.wav --json plan").status);
    const ProgramResult leveled = run("--plan plan --json done");
    EXPECT_EQ(0, leveled.status) << leveled.err;
    EXPECT_THAT(names_in("out"), ElementsAre(".quorvane.jsonl", "a-leveled.wav", "b-leveled.wav"));
    auto done = facts(read_text(dir_ / "done"));
    EXPECT_EQ("skipped", done.at("in/link.wav").at("status"));
    EXPECT_THAT(done.at("in/link.wav").at("cause"), HasSubstr("is a link to "));
    EXPECT_EQ("skipped", done.at("in/a-leveled.wav").at("status"));
}

// Hands a job's words to bash at once, a task after the other.
TEST_F(BatchPlans, AJobArrayTakesAnyPathAndRefusesGroupedForce) {
    talk("in/@/a.wav", 1);
    talk("in/@/-qf.wav", 1);
    fs::create_directory(dir_ / "bin");
    write_text(dir_ / "bin/sbatch",
               "#!/bin/bash\n"
               "for word; do case $word in --array=*) last=${word##*-};"
               " last=${last%%%*};; esac; done\n"
               "for ((i = 0; i <= ${last:-0}; ++i)); do\n"
               "  SLURM_ARRAY_JOB_ID=1 SLURM_ARRAY_TASK_ID=$i bash \"${!#}\" >>\"$(dirname "
               "\"${!#}\")/summary.txt\" 2>&1\n"
               "done; echo 1\n");
    fs::permissions(dir_ / "bin/sbatch", fs::perms::owner_all);
    const auto slurm = [&](const std::string& words) {
        return run_program("cd " + dir_.path() + " && PATH=" + dir_ / "bin" +
                           ":$(dirname " QUORVANE "):$PATH " RECORDINGS
                           "/../../script/quorvane-slurm --work w@/x " +
                           words);
    };
    for (const char* words :
         {"-qf in", "-vnq in", "-f in", "--force in", "-j4 in", "--json=- in"}) {
        EXPECT_EQ(2, slurm(words).status) << words;
    }
    const ProgramResult result =
        slurm("--wait --json=- -vd out/@/x --shards 2 -- in/@/-qf.wav in/@/a.wav");
    EXPECT_EQ(0, result.status) << result.err;
    EXPECT_THAT(outputs_in("out/@/x"), ElementsAre("-qf-leveled.wav", "a-leveled.wav"));
    const auto all = facts(result.out);  // nothing but JSON
    EXPECT_EQ("leveled", all.at("in/@/a.wav")["status"]);
    EXPECT_EQ(2u, all.size());
    // A task of its own for each conversation.
    write_talk(dir_ / "talks/one", 6);
    write_talk(dir_ / "talks/two", 6);
    const ProgramResult talks =
        slurm("--wait --work talks.work --together --mix mix.flac --shards 2 talks");
    EXPECT_EQ(0, talks.status) << talks.err;
    EXPECT_THAT(talks.out, HasSubstr("6 leveled"));
    for (const char* folder : {"talks/one", "talks/two"}) {
        EXPECT_THAT(outputs_in(folder), ElementsAre("guest-leveled.wav", "guest.wav",
                                                    "host-leveled.wav", "host.wav", "mix.flac"));
    }
}

}  // namespace
