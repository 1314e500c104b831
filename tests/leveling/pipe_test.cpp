#include "tests/support/batch_run.h"

using testing::HasSubstr;
using testing::IsEmpty;

namespace {

using PipeRun = BatchRun;

TEST_F(PipeRun, GiveTheBytesOfAFile) {
    talk("talk.wav", 2);
    ASSERT_EQ(run("-q talk.wav").status, 0);
    const std::string expected = read_text(dir_ / "talk-leveled.wav");
    const char* const rows[] = {
        "-q - < talk.wav > out.wav",         // a file, which could be sought in
        "-q - < <(cat talk.wav) > out.wav",  // a pipe
        "-q talk.wav -o - > out.wav",
        "-q - -o out.wav < <(cat talk.wav)",
        "-q --json f.jsonl - < talk.wav > out.wav",
    };
    for (const std::string row : rows) {
        SCOPED_TRACE(row);
        const ProgramResult result =
            run_program("cd '" + dir_.path() + "' && bash -c '" QUORVANE " " + row + "'");
        EXPECT_EQ(result.status, 0) << result.err;
        EXPECT_EQ(read_text(dir_ / "out.wav"), expected);
        std::filesystem::remove(dir_ / "out.wav");
        std::filesystem::remove(dir_ / ".quorvane.jsonl");
    }
    EXPECT_THAT(read_text(dir_ / "f.jsonl"), HasSubstr("\"input\":\"-\",\"output\":\"-\""));
}

TEST_F(PipeRun, AForeignWriterOfUnknownLengthIsReadByContent) {
    talk("talk.wav", 2);

    struct Row {
        const char* options;
        const char* codec;
    };

    const Row rows[] = {
        {"-f wav", "pcm_s16le"},
        {"-f flac", "flac"},
        {"-f mp3", "mp3"},
        {"-f ogg -c:a libvorbis", "vorbis"},
        {"-f opus", "opus"},
        {"-f adts -c:a aac", "aac"},
        {"-f mp4 -c:a aac -movflags frag_keyframe+empty_moov", "aac"},
        {"-f matroska -c:a flac", "flac"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.options);
        const ProgramResult result = run_program(
            "cd '" + dir_.path() + "' && ffmpeg -v error -i talk.wav " + row.options +
            " - | " QUORVANE
            " - 2>words.txt >out && ffprobe -v error -show_entries stream=codec_name -of csv=p=0 "
            "out");
        EXPECT_THAT(result.out, testing::StartsWith(row.codec)) << read_text(dir_ / "words.txt");
        EXPECT_THAT(read_text(dir_ / "words.txt"), HasSubstr("leveled - > -"));
    }
}

TEST_F(PipeRun, WhatCannotBeWrittenOrReadIsAFailure) {
    talk("talk.wav", 1);
    write_text(dir_ / "empty", "");
    write_text(dir_ / "words", "no recording at all");

    struct Row {
        const char* words;
        int status;
        const char* message;
    };

    const Row rows[] = {
        {"- < empty", 1, "the standard input is empty"},
        {"- < words", 1, "holds no recording of a known format"},
        {"- < talk.wav > /dev/full", 1, "the standard output cannot be written: No space left"},
        {"- < talk.wav >&-", 1, "the standard output cannot be written: Bad file descriptor"},
        {"-o - talk.wav >&-", 1, "the standard output was closed or is full"},
        {"--json - -o out.wav - < talk.wav >&-", 1, "the JSON facts could not be written"},
        {"--json - --analyze talk.wav >&-", 1, "the JSON facts could not be written"},
        {"--analyze talk.wav >&-", 1, "the standard output cannot be written"},
        {"--help >&-", 1, "the standard output cannot be written"},
        {"- --json - < talk.wav", 2, "the output and --json cannot both"},
        {"- talk.wav < talk.wav", 2, "goes with one input and one output"},
        {"-d out - < talk.wav", 2, "without --output-dir"},
        {"-o - .", 2, ". is not a file"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.words);
        const ProgramResult result = run(row.words);
        EXPECT_EQ(result.status, row.status);
        EXPECT_THAT(result.err, HasSubstr(row.message));
        EXPECT_THAT(result.out, IsEmpty());
    }
    talk("long.wav", 4);  // more than a pipe holds
    const ProgramResult closed =
        run_program("cd '" + dir_.path() +
                    "' && bash -o pipefail -c '" QUORVANE " - < long.wav | head -c 100 >part'");
    EXPECT_EQ(closed.status, 1);
    EXPECT_THAT(closed.err, HasSubstr("the standard output cannot be written: Broken pipe"));
    const ProgramResult terminal = run_program(
        "cd '" + dir_.path() + "' && script -qec '" QUORVANE " - < talk.wav' /dev/null");
    EXPECT_EQ(terminal.status, 2);
    EXPECT_THAT(terminal.out, HasSubstr("the standard output is a terminal"));
}

TEST_F(PipeRun, AMeasurementWritesNothing) {
    talk("talk.wav", 1);
    const ProgramResult result = run("--analyze - < talk.wav");
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_THAT(result.out, HasSubstr("LUFS"));
    EXPECT_THAT(outputs_in("."), testing::ElementsAre("talk.wav", "tmp"));
}

}  // namespace
