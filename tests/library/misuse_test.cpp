#include <gmock/gmock.h>

#include <functional>
#include <limits>

#include "tests/library/library_support.h"

namespace {

using testing::HasSubstr;
using testing::IsEmpty;

/** A call that has to fail, and what it has to say. */
struct Misuse {
    const char* name;
    std::function<int(quorvane_leveler*, quorvane_audio, quorvane_buffer)> call;
    int code;
    const char* words;
};

int level(quorvane_leveler* leveler, const quorvane_audio& audio, const quorvane_buffer& buffer) {
    return quorvane_level(leveler, &audio, &buffer);
}

int configure(quorvane_leveler* leveler, const std::function<void(quorvane_options&)>& change) {
    quorvane_options options = default_options();
    change(options);
    return quorvane_configure(leveler, &options);
}

using Leveler = quorvane_leveler;
using Audio = quorvane_audio;
using Buffer = quorvane_buffer;
using Options = quorvane_options;
using Call = std::function<int(Leveler*, Audio, Buffer)>;

/** Levels audio of which one thing is wrong. */
Call level_with(void (*change)(Audio&)) {
    return [change](Leveler* leveler, Audio audio, Buffer buffer) {
        change(audio);
        return level(leveler, audio, buffer);
    };
}

/** Sets options of which one thing is wrong. */
Call configure_with(void (*change)(Options&)) {
    return [change](Leveler* leveler, Audio, Buffer) { return configure(leveler, change); };
}

const std::vector<Misuse>& misuses() {
    static const float kNan[] = {0, 0, std::numeric_limits<float>::quiet_NaN(), 0};
    static const char* const kOutput[] = {"--output-file=/tmp/x"};
    static const char* const kBare[] = {"segment"};
    static const char* const kDepth[] = {"--bit-depth=16"};
    static const std::vector<Misuse> all = {
        {"no audio", [](Leveler* l, Audio, Buffer b) { return quorvane_level(l, nullptr, &b); },
         QUORVANE_BAD_ARGUMENT, "audio is a null pointer"},
        {"no result", [](Leveler* l, Audio a, Buffer) { return quorvane_level(l, &a, nullptr); },
         QUORVANE_BAD_ARGUMENT, "result is a null pointer"},
        {"no samples", level_with([](Audio& a) { a.samples = nullptr; }), QUORVANE_BAD_ARGUMENT,
         "set either samples or planes"},
        {"size", level_with([](Audio& a) { a.size = 3; }), QUORVANE_BAD_ARGUMENT, "size is 3"},
        {"type", level_with([](Audio& a) { a.type = 9; }), QUORVANE_BAD_ARGUMENT,
         "9 is not a sample type"},
        {"0 Hz", level_with([](Audio& a) { a.sample_rate_hz = 0; }), QUORVANE_BAD_ARGUMENT, "0 Hz"},
        {"no channel", level_with([](Audio& a) { a.channels = 0; }), QUORVANE_BAD_ARGUMENT,
         "0 channels"},
        {"channels", level_with([](Audio& a) { a.channels = 65; }), QUORVANE_UNSUPPORTED,
         "65 channels"},
        {"empty", level_with([](Audio& a) { a.frames = 0; }), QUORVANE_BAD_AUDIO, "no frames"},
        {"too many frames", level_with([](Audio& a) { a.frames = UINT64_MAX / 2; }),
         QUORVANE_BAD_ARGUMENT, "cannot have"},
        {"not a number",
         level_with([](Audio& a) { a.samples = kNan, a.frames = 2, a.channels = 2; }),
         QUORVANE_BAD_AUDIO, "frame 1, channel 0"},
        {"not a number, measured in place",
         [](Leveler* l, Audio a, Buffer) {
             configure(l, [](Options& o) { o.measure = QUORVANE_MEASURE_LOUDNESS; });
             a.samples = kNan, a.frames = 4;
             return quorvane_measure(l, &a);
         },
         QUORVANE_BAD_AUDIO, "frame 2, channel 0"},
        {"nothing, measured in place",
         [](Leveler* l, Audio a, Buffer) {
             configure(l, [](Options& o) { o.measure = QUORVANE_MEASURE_LOUDNESS; });
             a.frames = 0;
             return quorvane_measure(l, &a);
         },
         QUORVANE_BAD_AUDIO, "no frames"},
        {"target", configure_with([](Options& o) { o.target = "podcats"; }), QUORVANE_BAD_OPTION,
         "podcats"},
        {"own target", configure_with([](Options& o) { o.target_lufs = -99; }), QUORVANE_BAD_OPTION,
         "from -40 to -5"},
        {"two targets",
         configure_with([](Options& o) { o.target = "podcast", o.target_lufs = -16; }),
         QUORVANE_BAD_OPTION, "both set"},
        {"tuning with a file",
         configure_with([](Options& o) { o.tuning = kOutput, o.tuning_count = 1; }),
         QUORVANE_BAD_OPTION, "names a file"},
        {"tuning without a value",
         configure_with([](Options& o) { o.tuning = kBare, o.tuning_count = 1; }),
         QUORVANE_BAD_OPTION, "--name=value"},
        {"bit depth",
         [](Leveler* l, Audio a, Buffer b) {
             configure(l, [](quorvane_options& o) { o.tuning = kDepth, o.tuning_count = 1; });
             return level(l, a, b);
         },
         QUORVANE_BAD_OPTION, "keep their type"},
        {"measure", configure_with([](Options& o) { o.measure = 7; }), QUORVANE_BAD_ARGUMENT,
         "measure is 7"},
        {"scratch folder",
         [](Leveler* l, Audio a, Buffer b) {
             configure(l,
                       [](quorvane_options& o) { o.memory_bytes = 1, o.scratch_folder = "/none"; });
             return level(l, a, b);
         },
         QUORVANE_IO_ERROR, "/none"},
        {"no target", [](Leveler* l, Audio a, Buffer b) { return quorvane_limit(l, &a, &b); },
         QUORVANE_BAD_OPTION, "needs a target"},
        {"write first", [](Leveler* l, Audio a, Buffer) { return quorvane_write(l, &a); },
         QUORVANE_WRONG_STATE, "quorvane_begin"},
        {"finish first", [](Leveler* l, Audio, Buffer) { return quorvane_finish(l); },
         QUORVANE_WRONG_STATE, "quorvane_begin"},
        {"read first",
         [](Leveler* l, Audio, Buffer b) {
             uint64_t got = 0;
             return quorvane_read(l, &b, 1, &got);
         },
         QUORVANE_WRONG_STATE, "quorvane_finish"},
        {"another rate",
         [](Leveler* l, Audio a, Buffer) {
             quorvane_begin(l, a.type, 8000, a.channels);
             return quorvane_write(l, &a);
         },
         QUORVANE_BAD_ARGUMENT, "8000 Hz"},
        {"nothing written",
         [](Leveler* l, Audio a, Buffer) {
             quorvane_begin(l, a.type, a.sample_rate_hz, a.channels);
             return quorvane_finish(l);
         },
         QUORVANE_BAD_AUDIO, "no frames"},
        {"no file",
         [](Leveler* l, Audio, Buffer) { return quorvane_level_file(l, "/none.wav", "/x.wav"); },
         QUORVANE_IO_ERROR, "/none.wav: cannot be read: No such file"},
        {"a folder", [](Leveler* l, Audio, Buffer) { return quorvane_measure_file(l, "/"); },
         QUORVANE_IO_ERROR, "a folder"},
        {"another moment",
         [](Leveler* l, Audio, Buffer) {
             quorvane_loudness loudness{};
             loudness.size = sizeof loudness;
             return quorvane_get_loudness(l, QUORVANE_AFTER, &loudness);
         },
         QUORVANE_WRONG_STATE, "was not measured"},
        {"no such finding",
         [](Leveler* l, Audio, Buffer) {
             quorvane_finding finding{};
             return quorvane_get_finding(l, 3, &finding);
         },
         QUORVANE_BAD_ARGUMENT, "finding 3"},
    };
    return all;
}

TEST(LibraryMisuse, IsRefusedWithASentence) {
    const Frames frames = frames_of(signals::speech(1.0, 16000), QUORVANE_FLOAT32);
    for (const Misuse& misuse : misuses()) {
        SCOPED_TRACE(misuse.name);
        const Handle leveler = new_leveler();
        std::vector<char> result(frames.bytes.size(), 'x');
        EXPECT_EQ(misuse.code, misuse.call(leveler.get(), frames.audio(), buffer_of(result)));
        EXPECT_THAT(quorvane_last_error(leveler.get()), HasSubstr(misuse.words));
        EXPECT_THAT(quorvane_last_error(leveler.get()), testing::Not(HasSubstr("/dev/shm")));
        EXPECT_EQ(std::vector<char>(result.size(), 'x'), result);
    }
}

TEST(LibraryMisuse, OfNullLevelersIsHarmless) {
    quorvane_free(nullptr);
    quorvane_cancel(nullptr);
    EXPECT_EQ(QUORVANE_BAD_ARGUMENT, quorvane_finish(nullptr));
    EXPECT_STREQ("", quorvane_verdict(nullptr));
    EXPECT_EQ(0U, quorvane_finding_count(nullptr));
    EXPECT_STREQ("unknown", quorvane_error_name(99));
    EXPECT_STREQ("QUORVANE_EXISTS", quorvane_error_name(QUORVANE_EXISTS));
}

TEST(LibraryMisuse, StructsOfLaterVersionsAreTakenWhileTheirNewFieldsAreZero) {
    struct Later {
        quorvane_options options;
        double field;
    } later{default_options(), 0};

    later.options.size = sizeof later;
    const Handle leveler = new_leveler();
    EXPECT_EQ(QUORVANE_OK, quorvane_configure(leveler.get(), &later.options));
    later.field = 1;
    EXPECT_EQ(QUORVANE_BAD_ARGUMENT, quorvane_configure(leveler.get(), &later.options));
}

struct Watch {
    quorvane_leveler* leveler;
    double cancel_at;
    int answer;
    int nested = -1;
    double last = 0;
    bool rises = true;
};

int watch(void* context, double fraction) {
    Watch& watch = *static_cast<Watch*>(context);
    watch.rises = watch.rises && fraction >= watch.last && fraction <= 1;
    watch.last = fraction;
    if (watch.nested == -1) {
        const Handle other = new_leveler();
        watch.nested = quorvane_begin(other.get(), QUORVANE_INT16, 8000, 1);
    }
    if (fraction < watch.cancel_at) {
        return 0;
    }
    if (watch.answer == 0) {
        quorvane_cancel(watch.leveler);
    }
    return watch.answer;
}

TEST(LibraryCancel, EndsTheCallAtAnyPoint) {
    const Frames frames = frames_of(signals::speech(3.0, 16000), QUORVANE_FLOAT32);
    const TempDir scratch;
    for (const int answer : {0, 1}) {
        for (const double at : {0.0, 0.05, 0.3, 0.6, 0.9, 0.99}) {
            SCOPED_TRACE(std::to_string(at) + ", " + std::to_string(answer));
            const Handle leveler = new_leveler();
            Watch state{leveler.get(), at, answer};
            quorvane_options options = default_options();
            options.progress = watch;
            options.context = &state;
            options.memory_bytes = 1;
            options.scratch_folder = scratch.path().c_str();
            ASSERT_EQ(QUORVANE_OK, quorvane_configure(leveler.get(), &options));
            std::vector<char> result(frames.bytes.size(), 'x');
            EXPECT_EQ(QUORVANE_CANCELLED, level(leveler.get(), frames.audio(), buffer_of(result)));
            EXPECT_EQ(std::vector<char>(result.size(), 'x'), result);
            EXPECT_EQ(QUORVANE_WRONG_STATE, state.nested);
            EXPECT_TRUE(state.rises);
            EXPECT_THAT(scratch.entries(), IsEmpty());
            quorvane_clear_cancel(leveler.get());
            state.cancel_at = 2;
            EXPECT_EQ(QUORVANE_OK, level(leveler.get(), frames.audio(), buffer_of(result)));
            EXPECT_EQ(1, state.last);
        }
    }
}

}  // namespace
