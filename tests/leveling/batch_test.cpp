#include <gmock/gmock.h>

#ifdef __linux__
#include <sys/xattr.h>
#endif

#include <chrono>
#include <cmath>
#include <filesystem>

#include "tests/support/batch_run.h"

using testing::AllOf;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace {

namespace fs = std::filesystem;
using Json = nlohmann::json;

class Batch : public BatchRun {};

TEST_F(Batch, AFolderIsLeveledAndOneBadFileCostsItselfOnly) {
    talk("season/one.wav");
    talk("season/sub/two.flac", 4, SF_FORMAT_FLAC | SF_FORMAT_PCM_16);
    write_text(dir_ / "season/bad.wav", "nothing to hear");
    write_sound(dir_ / "season/many-channels.wav", signals::sine(0.2, 300, 2, 16000, 65), kWav16);
    const std::string before = read_text(dir_ / "season/one.wav");
    const ProgramResult result = run("-j2 -d out --json facts.json season nowhere.wav");
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(outputs_in("out"), ElementsAre("one-leveled.wav", "sub"));
    EXPECT_EQ(read_text(dir_ / "season/one.wav"), before);
    EXPECT_EQ(sound_info(dir_ / "out/sub/two-leveled.flac").frames, 64000);
    EXPECT_THAT(result.out, HasSubstr("2 leveled, 3 failed in"));
    // Each failure is told once, when it happens.
    EXPECT_THAT(result.err, HasSubstr("failed season/bad.wav: cannot be read as audio"));
    EXPECT_THAT(result.err, HasSubstr("failed nowhere.wav: does not exist"));
    const std::size_t first = result.err.find("failed season/many-channels.wav: ");
    EXPECT_EQ(std::string::npos, result.err.find("failed season/many-channels.wav: ", first + 1));
    EXPECT_THAT(result.err, HasSubstr("it has 65 channels, at most 64 can be leveled"));

    const auto all = facts(read_text(dir_ / "facts.json"));
    ASSERT_EQ(all.size(), 5u);
    const Json& one = all.at("season/one.wav");
    EXPECT_EQ(one["status"], "leveled");
    EXPECT_EQ(one["frames"], 64000);
    EXPECT_NEAR(one["after"]["integrated_lufs"], -17.5, 1.5);
    EXPECT_GE(one["leveling"]["passages"].size(), 1u);
    EXPECT_LE(one["leveling"]["least_gain_db"], one["leveling"]["greatest_gain_db"]);
    EXPECT_EQ(all.at("nowhere.wav")["status"], "failed");
}

TEST_F(Batch, OutputsThatExistAreKeptWithoutForce) {
    talk("a.wav");
    write_text(dir_ / "a-leveled.wav", "mine");
    ProgramResult result = run("a.wav");
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.out, HasSubstr("skipped a.wav: a-leveled.wav exists"));
    EXPECT_EQ(read_text(dir_ / "a-leveled.wav"), "mine");

    const auto time = fs::file_time_type::clock::now() - std::chrono::hours(1000);
    fs::last_write_time(dir_ / "a.wav", time);
    result = run("-f --keep-mtime -q a.wav");
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out + result.err, "");
    EXPECT_EQ(sound_info(dir_ / "a-leveled.wav").frames, 64000);
    EXPECT_EQ(fs::last_write_time(dir_ / "a-leveled.wav"), time);
}

TEST_F(Batch, ASecondRunDoesOnlyWhatChanged) {
    for (const char* name : {"in/a.wav", "in/b.wav", "in/c.wav"}) {
        talk(name);
    }
    ASSERT_EQ(0, run("-d out in --json first.jsonl").status);
    const std::string output = read_text(dir_ / "out/a-leveled.wav");
    EXPECT_THAT(run("-d out in").out, HasSubstr("3 up to date in"));

    talk("in/b.wav", 3);
    ProgramResult result = run("-d out in");
    EXPECT_EQ(0, result.status);
    EXPECT_THAT(result.out, HasSubstr("skipped in/b.wav: the input changed since"));
    EXPECT_EQ(64000, sound_info(dir_ / "out/b-leveled.wav").frames);
    EXPECT_THAT(run("-n -d out in --redo-changed").out,
                HasSubstr("2 up to date, 1 to be done; 0:03"));
    result = run("-d out in --redo-changed --json second.jsonl");
    EXPECT_THAT(result.out, HasSubstr("1 leveled, 2 up to date"));
    EXPECT_EQ(48000, sound_info(dir_ / "out/b-leveled.wav").frames);
    EXPECT_EQ(output, read_text(dir_ / "out/a-leveled.wav"));
    const Json before = facts(read_text(dir_ / "first.jsonl")).at("in/a.wav");
    Json after = facts(read_text(dir_ / "second.jsonl")).at("in/a.wav");
    EXPECT_EQ("up-to-date", after["status"]);
    EXPECT_EQ(before["after"]["integrated_lufs"], after["after"]["integrated_lufs"]);
    EXPECT_EQ(before["leveling"]["passages"], after["leveling"]["passages"]);
}

TEST_F(Batch, OutputsOfVersion3AreKeptAndCountedInOneLine) {
    talk("in/a.wav");
    talk("in/b.wav", 3);
    ASSERT_EQ(0, run("--plain -d out in").status);
    // What version 3.0 wrote had no way.
    std::string records = read_text(dir_ / "out/.quorvane.jsonl");
    const std::string way = "\"way\":\"plain\",";
    for (int i = 0; i < 2; ++i) {
        ASSERT_THAT(records, HasSubstr(way));
        records.erase(records.find(way), way.size());
    }
    write_text(dir_ / "out/.quorvane.jsonl", records);
    const std::string output = read_text(dir_ / "out/a-leveled.wav");

    EXPECT_THAT(run("--plain -d out in").out, HasSubstr("2 up to date"));
    const std::string line = "2 outputs made by an earlier version of the arithmetic were kept";
    for (const char* words : {"-d out in --json facts.jsonl", "-n -d out in", "-q -d out in"}) {
        const ProgramResult result = run(words);
        EXPECT_EQ(0, result.status) << words;
        EXPECT_THAT(result.out, Not(HasSubstr("skipped in/a.wav"))) << words;
        if (words[1] != 'q') {
            EXPECT_THAT(result.out, HasSubstr(line)) << words;
        }
    }
    EXPECT_EQ(output, read_text(dir_ / "out/a-leveled.wav"));
    EXPECT_TRUE(facts(read_text(dir_ / "facts.jsonl")).at("in/a.wav")["earlier_arithmetic"]);
    EXPECT_THAT(run("merge facts.jsonl").out, HasSubstr(line));
    EXPECT_THAT(run("-d out in/a.wav").out, HasSubstr("1 output made by an earlier version"));

    EXPECT_THAT(run("-d out in --redo-changed").out, HasSubstr("2 leveled in"));
    EXPECT_THAT(run("-d out in").out, HasSubstr("2 up to date"));
    EXPECT_THAT(run("--plain -d out in").out, HasSubstr("leveled with other options"));
}

TEST_F(Batch, ForADestination16BitsAreDitheredOnceAndFromFloats) {
    // A faint tone goes on between loud bursts, which end in a second of digital silence.
    Signal signal = signals::join({signals::speech(8, 16000), signals::silence(16000, 16000)});
    for (std::size_t i = 0; i < 8 * 16000; ++i) {
        const double noise = 3.2e-5 * std::sin(0.9 * static_cast<double>(i));
        signal.samples[i] = std::rint((signal.samples[i] * 0.5 + noise) * 32768) / 32768;
    }
    fs::create_directory(dir_ / "in");
    write_sound(dir_ / "in/a.wav", signal, kWav16);
    write_sound(dir_ / "in/b.wav", signal, kWavFloat);
    ASSERT_EQ(0, run("--for podcast -d out in").status);
    const std::vector<double> dithered = read_sound(dir_ / "out/a-leveled.wav").samples;
    const std::vector<double> exact = read_sound(dir_ / "out/b-leveled.wav").samples;
    ASSERT_EQ(exact.size(), dithered.size());
    double error = 0;
    for (std::size_t i = 0; i < exact.size(); ++i) {
        error += (dithered[i] - exact[i]) * (dithered[i] - exact[i]);
    }
    EXPECT_LE(10 * std::log10(error / static_cast<double>(exact.size())), -96);
    EXPECT_THAT(std::vector<double>(dithered.end() - 15000, dithered.end()), Each(0));

    ASSERT_EQ(0, run("--for podcast -d again in/a.wav").status);
    EXPECT_EQ(read_text(dir_ / "out/a-leveled.wav"), read_text(dir_ / "again/a-leveled.wav"));
}

TEST_F(Batch, DryRunsAndAnalysesWriteNothing) {
    talk("s/a.wav");
    ProgramResult result = run("-n s");
    EXPECT_EQ(result.out,
              "would level s/a.wav > s/a-leveled.wav\n1 to be done; 0:04 of audio to work on\n");
    result = run("--analyze --json - s");
    EXPECT_EQ(result.status, 0);
    const auto all = facts(result.out);  // nothing but JSON
    EXPECT_EQ(all.at("s/a.wav")["status"], "analyzed");
    EXPECT_TRUE(all.at("s/a.wav")["output"].is_null());
    EXPECT_THAT(result.err, HasSubstr("LUFS"));
    EXPECT_THAT(names_in("s"), ElementsAre("a.wav"));
}

TEST_F(Batch, WrongUsageIsStatus2BeforeAnyWork) {
    talk("a.wav");
    EXPECT_EQ(run("-d out -o b.wav a.wav").status, 2);
    EXPECT_EQ(run("--keep-top a.wav").status, 2);
    EXPECT_EQ(run("--settle 61 a.wav").status, 2);
    EXPECT_FALSE(file_exists(dir_ / "a-leveled.wav"));
    EXPECT_EQ(run("--for a.wav").status, 2) << "no long option is guessed";
    EXPECT_EQ(run("--%original_token%x a.wav").status, 2) << "the parser's own placeholder";
    EXPECT_EQ(run("--help").status, 0);
    EXPECT_THAT(run("merge --help").out, HasSubstr("Usage: quorvane merge RESULTS..."));
    EXPECT_THAT(run("merge --reprt a one").err, AllOf(HasSubstr("(did you mean --report?)"),
                                                      HasSubstr("Try 'quorvane merge --help'.")));
    EXPECT_EQ(run("--version").out, "quorvane 4.0.0\n");
}

// What a run keeps of an input that is not there has to be small: a list may hold a million.
TEST_F(Batch, ManyMissingNamesTakeLittleMemory) {
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "the sanitizer reserves terabytes of addresses";
#endif
    run_program("cd " + dir_.path() + " && seq -f 'no/such/file/%08.0f.wav' 200000 >names");
    const ProgramResult result =
        run_program("cd " + dir_.path() +
                    " && ulimit -v 200000 && " QUORVANE
                    " --files-from names --failed failed --json all.jsonl 2>messages");
    EXPECT_EQ(1, result.status) << read_text(dir_ / "messages").substr(0, 1000);
    EXPECT_THAT(result.out, HasSubstr("\n200000 failed in "));
    EXPECT_THAT(result.out, HasSubstr("\nfailed 199980 more (--failed FILE lists them all)\n"));
    EXPECT_TRUE(read_text(dir_ / "names") == read_text(dir_ / "failed"));
    EXPECT_EQ("200000\n", run_program("wc -l <" + dir_ / "all.jsonl").out);
    EXPECT_EQ("200000\n", run_program("wc -l <" + dir_ / "messages").out);
}

TEST_F(Batch, ALimitOnOpenFilesIsNamed) {
    talk("a.wav", 1);
    const std::string limited = "cd " + dir_.path() + " && ulimit -n 8 && " QUORVANE;
    for (const char* words : {" a.wav", " --input-file a.wav --output-file b.wav"}) {
        const ProgramResult result = run_program(limited + words);
        EXPECT_EQ(1, result.status) << words;
        EXPECT_THAT(result.err, HasSubstr("only 8 files may be open at a time")) << words;
    }
    EXPECT_EQ(0, run_program("cd " + dir_.path() + " && ulimit -Sn 8 && " QUORVANE " a.wav").status)
        << "the limit can be raised";
}

TEST_F(Batch, CopiesAreSaidWithTheirReason) {
    fs::create_directory(dir_ / "s");
    const auto flat = [](long long) { return 0.25; };
    const std::tuple<std::string, Signal, std::string> rows[] = {
        {"short", signals::sine(0.5, 440, 0.04, 16000), ": shorter than 0.05 s"},
        {"still", signals::silence(16000, 16000), ": silent"},
        {"flat", signals::from(flat, 16000, 16000), ": every sample is the same"},
        {"faint", signals::sine(0.0005, 440, 2, 16000),
         ": nothing in it stands out of its background noise"}};
    for (const auto& row : rows) {
        write_sound(dir_ / ("s/" + std::get<0>(row) + ".wav"), std::get<1>(row), kWav16);
    }
    const auto [status, told, errors] = run("s");
    EXPECT_EQ(status, 0) << errors;
    EXPECT_THAT(told, HasSubstr("4 copied unchanged"));
    for (const auto& [name, signal, cause] : rows) {
        const std::string input = "s/" + name + ".wav";
        const std::string output = "s/" + name + "-leveled.wav";
        EXPECT_THAT(told, HasSubstr("copied unchanged " + input + " > " + output + cause));
        EXPECT_EQ(read_text(dir_ / input), read_text(dir_ / output));
    }
}

TEST_F(Batch, ATargetThatHadToBeLoweredIsSaidEverywhere) {
    write_sound(dir_ / "ticks.wav",
                signals::knocked_speech({-12, -18, 0.5, 1.0, 1, false, 26}, 16000), kWav16);
    const ProgramResult result = run("--plain --json facts.json --report report.html ticks.wav");
    EXPECT_EQ(result.status, 0) << result.err;
    const std::string sentence =
        "its target level was lowered by 4.0 dB: clicks or loud peaks leave no room for more";
    EXPECT_THAT(result.out, HasSubstr(sentence));
    EXPECT_THAT(read_text(dir_ / "report.html"), HasSubstr(sentence));
    EXPECT_THAT(facts(read_text(dir_ / "facts.json"))["ticks.wav"]["notes"], ElementsAre(sentence));
    EXPECT_LT(peak_of(read_sound(dir_ / "ticks-leveled.wav")), 32767.0 / 32768.0);
}

TEST_F(Batch, WithInputFileItIsTheEnginesCommandLine) {
    talk("a.wav");
    EXPECT_EQ(run("--input-file a.wav --output-file direct.wav").status, 0);
    EXPECT_EQ(run("--plain --no-measure a.wav").status, 0);
    EXPECT_EQ(read_text(dir_ / "direct.wav"), read_text(dir_ / "a-leveled.wav"))
        << "the same bytes both ways";
    EXPECT_EQ(run("--input-file=a.wav --help").status, 1);
    EXPECT_THAT(run("--input-file= --help").err, IsEmpty());
}

TEST_F(Batch, TuningReachesTheEngineAndAFailureLeavesTheOldOutput) {
    talk("a.wav");
    EXPECT_EQ(run("-b 24 a.wav").status, 0);
    EXPECT_EQ(sound_info(dir_ / "a-leveled.wav").format, SF_FORMAT_WAV | SF_FORMAT_PCM_24);
    const std::pair<const char*, const char*> refused[] = {
        {"-b 17", "17"}, {"--bin-size 100", "s shorter than the input"}};
    for (const auto& [option, cause] : refused) {
        const ProgramResult result = run("-f " + std::string(option) + " a.wav");
        EXPECT_EQ(result.status, 1);
        EXPECT_THAT(result.err, HasSubstr(cause));
        EXPECT_EQ(sound_info(dir_ / "a-leveled.wav").format, SF_FORMAT_WAV | SF_FORMAT_PCM_24);
    }
}

TEST_F(Batch, NamesMayHoldAnyBytes) {
    const std::string names[] = {"-dash.wav",     "sp ace 'q\"uote.wav",
                                 "lat\xe9in.wav", "new\nline.wav",
                                 "\xff.wav",      std::string(236, 'n') + ".wav"};
    for (const std::string& name : names) {
        talk("s/" + name);
    }
    EXPECT_EQ(run("--json facts.json --report report s").status, 0);
    for (const std::string& name : names) {
        EXPECT_TRUE(file_exists(dir_ / ("s/" + name.substr(0, name.size() - 4) + "-leveled.wav")));
    }
    const auto all = facts(read_text(dir_ / "facts.json"));
    EXPECT_EQ(6u, all.size());
    EXPECT_EQ("s/lat%E9in.wav", all.at("s/lat\uFFFDin.wav")["input_bytes"]);
    EXPECT_FALSE(all.at("s/-dash.wav").contains("input_bytes"));
    EXPECT_EQ(run_program("cd '" + dir_ / "s" + "' && " QUORVANE " -f -- -dash.wav").status, 0);

    // Their JSON is read back as well: in it these two names differ in their bytes only.
    talk("t/\xe8.wav", 1);
    talk("t/\xe9.wav", 1);
    EXPECT_EQ(0, run("-n t --json plan").status);
    EXPECT_EQ(0, run("--plan plan --shard 0/2 --json 0.jsonl").status);
    EXPECT_EQ(0, run("--plan plan --shard 1/2 --json 1.jsonl").status);
    EXPECT_TRUE(file_exists(dir_ / "t/\xe8-leveled.wav") &&
                file_exists(dir_ / "t/\xe9-leveled.wav"));
    EXPECT_THAT(run("merge plan 0.jsonl 1.jsonl").out, HasSubstr("2 leveled"));
    write_text(dir_ / "t/\xe8.wav", "nothing to hear");
    EXPECT_EQ(1, run("-f t --json again.jsonl").status);
    EXPECT_EQ(1, run("merge 0.jsonl 1.jsonl again.jsonl").status);
}

TEST_F(Batch, APatternMayBeGivenASecondTime) {
    talk("a.wav");
    EXPECT_EQ(0, run("*.wav").status);
    for (const char* options : {"", "-d out ", "-f "}) {
        const ProgramResult again = run(options + std::string("*.wav"));
        EXPECT_EQ(0, again.status) << again.err;
        EXPECT_THAT(again.out, HasSubstr("skipped a-leveled.wav: is "));
    }
    EXPECT_THAT(outputs_in("out"), ElementsAre("a-leveled.wav"));
}

TEST_F(Batch, WhatCannotBeWrittenIsFoundBeforeTheWork) {
    talk("a.wav");
    write_text(dir_ / "file", "");
    for (const char* option : {"-n ", "", "--json - "}) {
        const ProgramResult result = run(option + std::string("-d file/out a.wav"));
        EXPECT_EQ(1, result.status);
        EXPECT_THAT(result.err, HasSubstr("file cannot be written: Not a directory"));
    }
    const ProgramResult full = run("--json - --analyze a.wav >/dev/full");
    EXPECT_EQ(1, full.status);
    EXPECT_THAT(full.err, HasSubstr("could not be written: No space left"));
}

TEST_F(Batch, AnOutputIsNoMoreOpenThanItsInput) {
    talk("a.wav");
    fs::permissions(dir_ / "a.wav", fs::perms::owner_read | fs::perms::group_read);
#ifdef __linux__
    // Some file systems have no extended attributes.
    const bool kept = setxattr((dir_ / "a.wav").c_str(), "user.note", "mine", 4, 0) == 0;
#endif
    EXPECT_EQ(0, run("a.wav").status);
    EXPECT_EQ(fs::perms::owner_read | fs::perms::group_read,
              fs::status(dir_ / "a-leveled.wav").permissions());
#ifdef __linux__
    char note[5] = "";
    EXPECT_EQ(kept ? 4 : -1, getxattr((dir_ / "a-leveled.wav").c_str(), "user.note", note, 4));
    EXPECT_STREQ(kept ? "mine" : "", note);
#endif
}

TEST_F(Batch, ALimitOnFileSizeFailsWithoutLeavings) {
    talk("s/a.wav", 60);
    talk("s/b.wav", 2);
    // 1 MB, in blocks of 512 or 1024 bytes: a.wav has 1.9 MB.
    const ProgramResult result =
        run_program("cd '" + dir_.path() + "' && ulimit -f 1024 && " QUORVANE_AT_ONCE "-d out s");
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(outputs_in("out"), ElementsAre("b-leveled.wav"));
}

TEST_F(Batch, WhatAKilledRunLeftIsSweptUp) {
    fs::create_directory(dir_ / "tmp/quorvane-abcdef");
    write_text(dir_ / "tmp/quorvane-abcdef/lock", "");
    write_text(dir_ / "tmp/quorvane-abcdef/_01.wav", "x");
    // Killed between making and locking it; and a folder of the user's own.
    const std::string unlocked = dir_ / "tmp/quorvane-ghijkl";
    const std::string own = dir_ / "tmp/quorvane-season";
    fs::create_directory(unlocked);
    write_text(unlocked + "/lock.new", "");
    fs::create_directory(own);
    write_text(own + "/talk.wav", "x");
    for (const std::string& folder : {unlocked, own}) {
        fs::last_write_time(folder, fs::file_time_type::clock::now() - std::chrono::hours(2));
    }
    talk("a.wav");
    EXPECT_EQ(run("-q a.wav").status, 0);
    EXPECT_THAT(names_in("tmp"), ElementsAre("quorvane-season"));
    EXPECT_EQ(1u, fs::remove_all(own + "/talk.wav"));
    fs::remove(own);
}

}  // namespace
