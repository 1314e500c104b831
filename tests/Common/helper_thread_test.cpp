#include "Common/stream/helper_thread.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <csignal>
#include <cstring>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "Common/audio/sound_handle.h"
#include "Common/bins/walls.h"
#include "Common/normalize/NormalizeOperation.h"
#include "Common/stream/parts.h"
#include "Common/stream/pump.h"
#include "Common/stream/read_ahead.h"
#include "Common/stream/sound_source.h"
#include "Common/stream/sound_writer.h"
#include "Common/stream/stretches.h"
#include "tests/support/arrays.h"
#include "tests/support/fixtures.h"

namespace {

using stream::HelperThread;

using Help = HelperThread::Help;

Help usual_help() {
    return std::thread::hardware_concurrency() > 1 ? Help::kHelped : Help::kAlone;
}

/** Either way of working, back to the usual one at the end. */
class Helped {
  public:
    explicit Helped(bool helped) { HelperThread::use(helped ? Help::kHelped : Help::kAlone); }

    ~Helped() { HelperThread::use(usual_help()); }

    Helped(const Helped&) = delete;
    Helped& operator=(const Helped&) = delete;
};

TEST(HelperThread, DoesPiecesInOrderAndNoneAfterAFailure) {
    for (const bool helped : {true, false}) {
        const Helped way(helped);
        SCOPED_TRACE(helped);
        std::vector<int> done;
        HelperThread::Lane other([] { std::this_thread::yield(); }, 8);
        HelperThread::Lane lane(
            [&] {
                if (done.size() == 60) {
                    throw std::runtime_error("no more");
                }
                done.push_back(static_cast<int>(done.size()));
            },
            8);
        for (int i = 0; i < 8; ++i) {
            lane.add();
        }
        for (int i = 1; i <= 60; ++i) {
            other.add();
            ASSERT_NO_THROW(lane.finish(i));
            lane.add();
        }
        EXPECT_THROW(lane.finish(61), std::runtime_error);
        EXPECT_THROW(lane.finish(62), std::runtime_error);
        ASSERT_NO_THROW(lane.finish(60));
        ASSERT_EQ(60U, done.size());
        EXPECT_TRUE(std::is_sorted(done.begin(), done.end()));
        lane.drop();  // and forgets the failure
        done.clear();
        lane.add();
        ASSERT_NO_THROW(lane.finish(1));
        EXPECT_EQ(1U, done.size());
    }
}

/** Takes all there is of a recording whose frame i is the number i; it breaks at a frame. */
std::vector<long long> taken_ahead(long long announced, long long breaks_at, std::string& problem) {
    long long position = 0;
    ReadAhead ahead(
        [&](unsigned char* bytes, long long frames) {
            long long fetched = 0;
            for (; fetched < frames && position < breaks_at; ++fetched, ++position) {
                std::memcpy(bytes + fetched * sizeof position, &position, sizeof position);
            }
            return ReadAhead::ReadResult{fetched, fetched < frames ? "unreadable" : ""};
        },
        sizeof(long long), announced);
    std::vector<long long> taken;
    for (long long most = 1;; most = most * 7 % 50021) {
        const ReadAhead::Span span = ahead.next(most);
        if (span.frames == 0) {
            break;
        }
        taken.resize(taken.size() + static_cast<std::size_t>(span.frames));
        std::memcpy(&taken[taken.size() - static_cast<std::size_t>(span.frames)], span.bytes,
                    static_cast<std::size_t>(span.frames) * sizeof taken[0]);
    }
    problem = ahead.problem();
    EXPECT_TRUE(ahead.is_used_up());
    EXPECT_GE(announced, position);
    return taken;
}

TEST(HelperThread, ReadingAheadBringsEveryFrameUpToTheEndOrTheProblem) {
    for (const bool helped : {true, false}) {
        const Helped way(helped);
        SCOPED_TRACE(helped);
        for (const long long breaks_at : {1LL << 40, 300000LL, 16384LL}) {
            std::string problem;
            const std::vector<long long> taken = taken_ahead(500001, breaks_at, problem);
            ASSERT_EQ(static_cast<std::size_t>(std::min(500001LL, breaks_at)), taken.size());
            for (std::size_t i = 0; i < taken.size(); i += 101) {
                ASSERT_EQ(static_cast<long long>(i), taken[i]);
            }
            EXPECT_EQ(breaks_at < 500001 ? "unreadable" : "", problem);
        }
    }
}

TEST(HelperThread, ASourceReadsTheSameWithAndWithoutIt) {
    const TempDir folder;
    const std::string path = folder / "in.wav";
    write_sound(path, signals::speech(10, 44100, 2), SF_FORMAT_WAV | SF_FORMAT_PCM_16);
    const auto read = [&](long long frames) {
        SF_INFO info{};
        const SoundHandle handle = open_sound_for_reading(path, info);
        SoundSource source(handle, path, info);
        Collector collected(2);
        stream::pump(source, collected, frames);
        EXPECT_EQ(frames, sf_seek(handle.get(), 0, SEEK_CUR));  // and not a frame beyond
        rewind(source);
        stream::pump(source, collected, frames);
        return collected.samples;
    };
    HelperThread::use(Help::kAlone);
    const std::vector<double> alone = read(399001);
    HelperThread::use(Help::kHelped);
    EXPECT_EQ(alone, read(399001));
    HelperThread::use(usual_help());
}

/** A recording brought through ramps into a file: the file's bytes, or what was thrown. */
std::string ramped(const std::string& path, long long& held) {
    const TempDir folder;
    const ProgressRecorder progress;
    SF_INFO info{};
    const SoundHandle input = open_sound_for_reading(path, info);
    SoundSource source(input, path, info);
    const BinGrid grid{2205, static_cast<int>(ceildiv(info.frames, 2205)), 0};
    std::vector<double> walls;
    for (int i = 0; i <= grid.bins; ++i) {
        walls.push_back(0.5 + i % 5 * 0.2);
    }
    const stream::Part ramps = wall_ramps(info.channels, grid, walls.data());
    std::atomic<long long> count{0};
    const stream::Part part = [&](stream::Receiver& end, long long first, double* samples,
                                  long long frames) {
        normalize::FullScaleHold hold(info.channels, end);
        ramps(hold, first, samples, frames);
        count += hold.held();
    };
    SoundHandle output = open_sound_for_writing(folder / "out", info);
    SoundWriter writer(output, folder / "out", info.channels, 1000, [](const WriteFailure&) {});
    try {
        stream::pump_parts(source, writer, part, grid.pacer({0, 100}));
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    held = count;
    return read_text(folder / "out");
}

TEST(HelperThread, TwoPartsAtATimeGiveTheFileThatOneAtATimeGives) {
    const TempDir folder;
    Signal input = signals::speech(11, 44100, 2);
    for (double& sample : input.samples) {
        sample = sample * 3.0 > 0.99 ? 0.99 : sample * 3.0;  // some to be held
    }
    Signal broken = input;
    broken.samples[2 * 300000] = broken.samples[2 * 400000] = std::nan("");

    const struct {
        const Signal& signal;
        int format;
        std::string text;  // part of what is thrown
    } rows[] = {{input, kWav16, ""},
                {input, SF_FORMAT_AIFF | SF_FORMAT_PCM_24, ""},
                {input, SF_FORMAT_WAV | SF_FORMAT_ULAW, ""},
                {broken, kWavFloat, "the sample in frame 300000 is not a number"}};

    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << std::hex << row.format);
        write_sound(folder / "in", row.signal, row.format);
        long long held_alone = 0;
        long long held_helped = 0;
        HelperThread::use(Help::kAlone);
        const std::string alone = ramped(folder / "in", held_alone);
        HelperThread::use(Help::kHelped);
        const std::string helped = ramped(folder / "in", held_helped);
        HelperThread::use(usual_help());
        EXPECT_TRUE(alone == helped);
        EXPECT_NE(std::string::npos, alone.find(row.text));
        EXPECT_EQ(row.text.empty(), held_alone > 0);
        EXPECT_EQ(held_alone, held_helped);
    }
}

/** What the receivers of stretches got, or what was thrown. */
std::vector<std::vector<double>> stretched(const std::string& path,
                                           const std::vector<long long>& lengths,
                                           std::string& failure) {
    SF_INFO info{};
    const SoundHandle input = open_sound_for_reading(path, info);
    SoundSource source(input, path, info);
    std::vector<Collector> collectors(lengths.size(), Collector(info.channels));
    std::vector<stream::Stretch> stretches;
    for (std::size_t i = 0; i < lengths.size(); ++i) {
        stretches.push_back({lengths[i], &collectors[i]});
    }
    failure.clear();
    try {
        stream::pump_stretches(source, stretches);
    } catch (const std::runtime_error& error) {
        failure = error.what();
    }
    std::vector<std::vector<double>> taken;
    for (const Collector& collector : collectors) {
        EXPECT_EQ(failure.empty() ? 1 : collector.ends, collector.ends);
        taken.push_back(collector.samples);
    }
    return taken;
}

/** Pieces that are certain to have been done by both threads once. */
void work_with_helper() {
    std::atomic<int> done{0};
    HelperThread::Lane lane([&] { ++done; }, 2);
    for (int i = 0; i < 4; ++i) {
        lane.add();
    }
    lane.finish(4);
    EXPECT_EQ(4, done);
}

TEST(HelperThread, AForkedChildEndsAndHasAHelperOfItsOwn) {
    const Helped helped(true);
    work_with_helper();
    // This forks, and exit destroys static objects. The alarm ends a child that waits for a thread
    // of its parent's.
    EXPECT_EXIT(
        {
            alarm(60);
            work_with_helper();
            exit(0);
        },
        testing::ExitedWithCode(0), "");
}

TEST(HelperThread, StretchesGetTheirFramesInOrderSideBySideOrNot) {
    const TempDir folder;
    const std::string path = folder / "in";
    const Signal input = signals::speech(11, 44100, 2);
    Signal broken = input;
    broken.samples[2 * 100000] = broken.samples[2 * 400000] = std::nan("");

    const struct {
        const Signal& signal;
        int format;
        std::vector<long long> lengths;
        std::string text;  // part of what is thrown
    } rows[] = {{input, kWav16, {441, 90000, 0, -7, 1, 150001, 60000, 99999, 9}, ""},
                {input, kWav16, {485100}, ""},
                {input, kWav16, {3, 480000, 3}, ""},
                {input, kWav16, {200000, 300000, 5}, ""},          // more than there is,
                {input, kWav16, {200000, 200000, 300000, 5}, ""},  // from a stretch on
                {input, kWav16, {700000, 5, 700000}, ""},
                {input, SF_FORMAT_WAV | SF_FORMAT_ULAW, {441, 90000, 150000, 5}, ""},
                {broken, kWavFloat, {90000, 200000, 195100}, "the sample in frame 100000 is not"}};

    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << std::hex << row.format << ", " << row.lengths.size());
        write_sound(path, row.signal, row.format);
        HelperThread::use(Help::kAlone);
        std::string failure_alone;
        const auto alone = stretched(path, row.lengths, failure_alone);
        HelperThread::use(Help::kHelped);
        std::string failure_helped;
        const auto helped = stretched(path, row.lengths, failure_helped);
        HelperThread::use(usual_help());
        EXPECT_EQ(failure_alone, failure_helped);
        EXPECT_NE(std::string::npos, failure_alone.find(row.text));
        if (!row.text.empty()) {
            continue;
        }
        EXPECT_TRUE(alone == helped);
        const Signal written = read_sound(path);
        auto at = written.samples.begin();
        for (std::size_t i = 0; i < row.lengths.size(); ++i) {
            const auto end = at + std::min<std::ptrdiff_t>(2 * std::max(row.lengths[i], 0LL),
                                                           written.samples.end() - at);
            EXPECT_TRUE(helped[i] == std::vector<double>(at, end)) << "stretch " << i;
            at = end;
        }
    }
}

/** No file of this process may grow beyond so many bytes. */
class SmallFiles {
  public:
    explicit SmallFiles(rlim_t bytes) : signal_(std::signal(SIGXFSZ, SIG_IGN)) {
        getrlimit(RLIMIT_FSIZE, &before_);
        const rlimit limit{bytes, before_.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
    }

    ~SmallFiles() {
        setrlimit(RLIMIT_FSIZE, &before_);
        std::signal(SIGXFSZ, signal_);
    }

    SmallFiles(const SmallFiles&) = delete;
    SmallFiles& operator=(const SmallFiles&) = delete;

  private:
    rlimit before_{};
    void (*signal_)(int);
};

TEST(HelperThread, WritingBehindTellsOfADiskThatIsFull) {
    const Helped way(true);
    SF_INFO info{};
    info.format = SF_FORMAT_AU | SF_FORMAT_PCM_16;
    info.channels = 1;
    info.samplerate = 44100;
    const TempDir folder;
    const std::string path = folder / "half.au";
    WriteFailure told{};
    {
        SoundHandle handle = open_sound_for_writing(path, info);
        ASSERT_TRUE(handle);
        SoundWriter writer(handle, path, 1, 1000, [&](const WriteFailure& failure) {
            told = failure;
            throw std::runtime_error("full");
        });
        std::vector<double> samples(60000, 0.25);
        const SmallFiles limit(100000);
        const auto write = [&] {
            for (int i = 0; i < 4; ++i) {
                writer.process(samples.data(), static_cast<long long>(samples.size()));
            }
            writer.finish();
        };
        EXPECT_THROW(write(), std::runtime_error);
    }
    // 24 bytes of header: 49,988 frames of the 50th thousand find room.
    EXPECT_EQ(1000, told.expected);
    EXPECT_EQ(988, told.written);
}

}  // namespace
