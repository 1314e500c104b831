#include <gmock/gmock.h>

#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "tests/library/library_support.h"
#include "tests/support/talk_tracks.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

/** Tracks of one talk in a folder, and what the command makes of them. */
class LibraryTogether : public testing::Test {
  protected:
    void SetUp() override { write_talk(in_.path(), 3); }

    ProgramResult command(const std::string& words) const {
        return run_program(std::string(QUORVANE) + " -q --no-config --suffix '' -d '" +
                           out_.path() + "' --together " + words);
    }

    /** Levels the two files; mix null: none. */
    int level_files(const Handle& leveler, const char* mix) const {
        const std::string paths[] = {in_ / "host.wav", in_ / "guest.wav", ours_ / "host.wav",
                                     ours_ / "guest.wav"};
        const char* const inputs[] = {paths[0].c_str(), paths[1].c_str()};
        const char* const outputs[] = {paths[2].c_str(), paths[3].c_str()};
        return quorvane_level_files_together(leveler.get(), inputs, outputs, 2, mix);
    }

    TempDir in_;
    TempDir out_;
    TempDir ours_;
};

/** The results of a call in memory. */
struct Called {
    int code;
    std::vector<std::vector<char>> samples;
};

Called level_together(const Handle& leveler, const std::vector<Frames>& tracks) {
    Called called{QUORVANE_OK, {}};
    std::vector<quorvane_audio> audio;
    std::vector<quorvane_buffer> results;
    for (const Frames& track : tracks) {
        called.samples.emplace_back(track.bytes.size(), 'x');
        audio.push_back(track.audio());
    }
    for (std::vector<char>& samples : called.samples) {
        results.push_back(buffer_of(samples));
    }
    called.code =
        quorvane_level_together(leveler.get(), audio.data(), results.data(), tracks.size());
    return called;
}

TEST_F(LibraryTogether, GivesTheSamplesOfTheCommand) {
    // Of unlike types and lengths.
    std::vector<Frames> tracks = {read_frames(in_ / "host.wav", QUORVANE_FLOAT32),
                                  read_frames(in_ / "guest.wav", QUORVANE_INT16)};
    tracks[1].bytes.resize(tracks[1].bytes.size() - 2 * 12345);
    const TempDir given;
    const char* const names[] = {"host.wav", "guest.wav"};
    for (std::size_t i = 0; i < 2; ++i) {
        Signal signal = read_sound(in_ / names[i]);
        signal.samples.resize(tracks[i].frames());
        write_sound(given / names[i], signal, wav_format(tracks[i].type));
        tracks[i] = read_frames(given / names[i], tracks[i].type);
    }
    const ProgramResult run = command(given / "host.wav" + " " + given / "guest.wav");
    ASSERT_EQ(0, run.status) << run.err;
    const Handle leveler = new_leveler();
    const Called called = level_together(leveler, tracks);
    ASSERT_EQ(QUORVANE_OK, called.code) << quorvane_last_error(leveler.get());
    for (std::size_t i = 0; i < 2; ++i) {
        SCOPED_TRACE(names[i]);
        EXPECT_TRUE(read_frames(out_ / names[i], tracks[i].type).bytes == called.samples[i]);
        EXPECT_EQ(QUORVANE_OK, quorvane_select_track(leveler.get(), i));
        EXPECT_EQ(QUORVANE_LEVELED, quorvane_get_outcome(leveler.get()));
        EXPECT_THAT(quorvane_verdict(leveler.get()), HasSubstr("One of 2 tracks"));
        EXPECT_THAT(quorvane_note(leveler.get(), 0), HasSubstr("one of 2 tracks"));
        EXPECT_THAT(quorvane_facts_json(leveler.get()), testing::Not(HasSubstr("audio.wav")));
    }
    EXPECT_EQ(QUORVANE_BAD_ARGUMENT, quorvane_select_track(leveler.get(), 2));
}

TEST_F(LibraryTogether, GivesTheFilesOfTheCommand) {
    const ProgramResult run = command("--for podcast --mix '" + out_ / "mix.flac" + "' '" +
                                      in_ / "host.wav" + "' '" + in_ / "guest.wav" + "'");
    ASSERT_EQ(0, run.status) << run.err;
    quorvane_options options = default_options();
    options.target = "podcast";
    const Handle leveler = new_leveler(options);
    const std::string mix = ours_ / "mix.flac";
    ASSERT_EQ(QUORVANE_OK, level_files(leveler, mix.c_str())) << quorvane_last_error(leveler.get());
    for (const char* name : {"host.wav", "guest.wav", "mix.flac"}) {
        EXPECT_TRUE(read_text(out_ / name) == read_text(ours_ / name)) << name;
    }
    ASSERT_EQ(QUORVANE_OK, quorvane_select_track(leveler.get(), 2));
    EXPECT_THAT(quorvane_note(leveler.get(), 0), HasSubstr("the mix of 2 tracks"));
    EXPECT_THAT(quorvane_verdict(leveler.get()), HasSubstr("The mix of 2 tracks"));
    EXPECT_EQ(QUORVANE_EXISTS, level_files(leveler, mix.c_str()));
}

/** Options that fit no tracks. */
struct Unfit {
    void (*change)(quorvane_options&);
    const char* words;
};

TEST_F(LibraryTogether, RefusesWhatTheCommandRefuses) {
    static const char* const kTuning[] = {"--segment-tolerance=5"};
    constexpr Unfit kUnfit[] = {
        {[](quorvane_options& o) { o.plain = 1; }, "plain is the engine alone"},
        {[](quorvane_options& o) { o.target = "podcast"; }, "is for the mix"},
        {[](quorvane_options& o) { o.tuning = kTuning, o.tuning_count = 1; }, "without the engine"},
    };
    const Frames track = read_frames(in_ / "host.wav", QUORVANE_FLOAT32);
    for (const Unfit& unfit : kUnfit) {
        quorvane_options options = default_options();
        unfit.change(options);
        const Handle leveler = new_leveler(options);
        EXPECT_EQ(QUORVANE_BAD_OPTION, level_files(leveler, nullptr));
        EXPECT_THAT(quorvane_last_error(leveler.get()), HasSubstr(unfit.words));
        EXPECT_EQ(QUORVANE_BAD_OPTION, level_together(leveler, {track, track}).code);
    }
    const Handle leveler = new_leveler();
    for (const std::size_t count : {0, 1, 65}) {
        EXPECT_EQ(QUORVANE_BAD_ARGUMENT,
                  level_together(leveler, std::vector<Frames>(count, track)).code);
        EXPECT_THAT(quorvane_last_error(leveler.get()),
                    HasSubstr("2 to 64 tracks of one conversation are leveled together, not " +
                              std::to_string(count)));
    }
}

/** A track that cannot be leveled, and what is said of it. */
struct Failing {
    const Frames& track;
    int code;
    const char* words;
};

TEST_F(LibraryTogether, NamesTheTrackThatFailsAndWritesNone) {
    const Frames good = read_frames(in_ / "host.wav", QUORVANE_FLOAT32);
    Frames wide = good;
    wide.channels = 4;
    Frames bad = good;
    const float infinite = HUGE_VALF;
    std::memcpy(&bad.bytes[4], &infinite, sizeof infinite);
    Frames empty = good;
    empty.bytes.clear();
    const Handle leveler = new_leveler();
    const Failing all[] = {
        {bad, QUORVANE_BAD_AUDIO, "track 2 of 2: the audio: the sample of frame 1"},
        {empty, QUORVANE_BAD_AUDIO, "track 2 of 2: the audio: it has no frames"},
        {wide, QUORVANE_UNSUPPORTED, "track 2 of 2: the audio: "},
    };
    for (const auto& [track, code, words] : all) {
        const Called called = level_together(leveler, {good, track});
        EXPECT_EQ(code, called.code);
        EXPECT_THAT(quorvane_last_error(leveler.get()), HasSubstr(words));
        EXPECT_THAT(quorvane_last_error(leveler.get()), testing::Not(HasSubstr("/")));
        EXPECT_EQ(std::vector<char>(good.bytes.size(), 'x'), called.samples[0]);
    }
    const std::string mix = ours_ / "mix.xyz";
    EXPECT_EQ(QUORVANE_BAD_ARGUMENT, level_files(leveler, mix.c_str()));
    EXPECT_THAT(quorvane_last_error(leveler.get()), HasSubstr("mix.xyz: a mix is written as WAV"));
    const std::string host = in_ / "host.wav";
    EXPECT_EQ(QUORVANE_BAD_ARGUMENT, level_files(leveler, host.c_str()));
    const std::string output = ours_ / "guest.wav";
    EXPECT_EQ(QUORVANE_BAD_ARGUMENT, level_files(leveler, output.c_str()));
    EXPECT_THAT(quorvane_last_error(leveler.get()), HasSubstr("the output of two"));
    write_text(in_ / "guest.wav", "RIFF");
    EXPECT_EQ(QUORVANE_BAD_AUDIO, level_files(leveler, nullptr));
    EXPECT_THAT(quorvane_last_error(leveler.get()), testing::StartsWith(in_ / "guest.wav" + ": "));
    EXPECT_THAT(ours_.entries(), IsEmpty());
}

/** What a callback does at a fraction. */
struct At {
    double fraction;
    std::string create;  // a file; empty: cancels
    double last = 0;
    bool rises = true;
};

int act(void* context, double fraction) {
    At& at = *static_cast<At*>(context);
    at.rises = at.rises && fraction >= at.last && fraction <= 1;
    at.last = fraction;
    if (fraction < at.fraction) {
        return 0;
    }
    if (!at.create.empty()) {
        write_text(at.create, "another program's");
    }
    return at.create.empty() ? 1 : 0;
}

TEST_F(LibraryTogether, AllOutputsAppearOrNone) {
    const std::string mix = ours_ / "mix.wav";
    for (const double fraction : {0.0, 0.3, 0.9, 1.0}) {
        SCOPED_TRACE(fraction);
        At at{fraction, ""};
        quorvane_options options = default_options();
        options.progress = act;
        options.context = &at;
        EXPECT_EQ(QUORVANE_CANCELLED, level_files(new_leveler(options), mix.c_str()));
        EXPECT_TRUE(at.rises);
        EXPECT_THAT(ours_.entries(), IsEmpty());
    }
    // The last one cannot have its name: the others lose theirs.
    At at{1, mix};
    quorvane_options options = default_options();
    options.progress = act;
    options.context = &at;
    const Handle leveler = new_leveler(options);
    EXPECT_EQ(QUORVANE_EXISTS, level_files(leveler, mix.c_str()));
    EXPECT_THAT(quorvane_last_error(leveler.get()), HasSubstr("mix.wav: was created by another"));
    EXPECT_THAT(ours_.entries(), ElementsAre("mix.wav"));
    EXPECT_EQ("another program's", read_text(mix));
}

}  // namespace
