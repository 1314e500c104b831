#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <functional>
#include <limits>

#include "Common/bins/measure.h"
#include "Common/bins/walls.h"
#include "Common/calculate_gains/CalcRMS.h"
#include "Common/highpass/Filter.h"
#include "Common/normalize/NormalizeOperation.h"
#include "Common/stream/pump.h"
#include "Common/stream/sound_source.h"
#include "Common/stream/sound_writer.h"
#include "tests/support/arrays.h"
#include "tests/support/fixtures.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

/** What a function throws, as text. */
std::string text_of(const std::function<void()>& function) {
    try {
        function();
    } catch (const std::exception& error) {
        return error.what();
    }
    return "nothing thrown";
}

TEST(Pump, HandsOnEveryFrameOnceAndShowsTheProgressOfTheUnits) {
    const Signal input =
        signals::from([](long long i) { return static_cast<double>(i) * 1e-6; }, 70001, 8000, 2);
    for (const long long most_frames : {1LL << 30, 777LL}) {
        const ProgressRecorder progress;
        ArraySource source(input, most_frames);
        Collector meter(2);
        Collector writer(2);
        stream::Tee tee(meter, writer);
        stream::pump(source, tee, stream::ProgressPacer({0, 100}, 30000, [](long long unit) {
                         return static_cast<double>(unit + 1) / 3;
                     }));
        EXPECT_EQ(input.samples, writer.samples);
        EXPECT_EQ(input.samples, meter.samples);
        EXPECT_EQ(1, meter.ends + writer.ends - 1);
        EXPECT_THAT(progress.fractions(), ElementsAre(0.33F, 0.66F, 1.0F));
    }
}

TEST(Pump, StopsAtTheLimitAndNamesFramesFromTheSourcesStart) {
    Signal input = signals::square(0.5, 1000, 8000, 2);
    input.samples[2 * 600 + 1] = std::numeric_limits<double>::infinity();
    ArraySource source(input);
    Collector first(2);
    stream::pump(source, first, 500);
    EXPECT_EQ(1000u, first.samples.size());
    EXPECT_EQ("array: the sample in frame 600 is infinite",
              text_of([&] { stream::pump(source, first, 500); }));
}

/** Runs a link over an input that comes in blocks of most_frames and returns what is to be told. */
using Link = std::function<std::vector<double>(ArraySource&)>;

TEST(Links, GiveTheSameBitsHoweverTheFramesAreCut) {
    const Signal input = signals::speech(3.0, 16000, 2);
    const BinGrid grid{701, static_cast<int>(ceildiv(input.frames(), 701)), 0};
    std::vector<double> walls;
    for (int i = 0; i <= grid.bins; ++i) {
        walls.push_back(1.0 + i % 7);
    }
    const auto measure = [&grid](auto rule, ArraySource& source) {
        std::vector<CBin> bins(static_cast<std::size_t>(grid.bins));
        std::vector<double> squares(bins.size());
        BinMeter<decltype(rule)> meter("in", 2, grid, bins.data(), squares.data());
        stream::pump(source, meter, stream::kToTheEnd);
        std::vector<double> found = squares;
        found.push_back(mean_rms(bins.data(), squares.data(), grid, meter.frames(), 2, 0.01));
        for (const CBin& bin : bins) {
            found.insert(found.end(), {bin.gain, bin.peak, bin.rms});
        }
        return found;
    };
    const Link links[] = {
        [&](ArraySource& source) { return measure(RmsOfAllSamples(), source); },
        [&](ArraySource& source) { return measure(RmsOfLouderChannel(), source); },
        [&](ArraySource& source) {
            Collector output(2);
            WallRamps ramps(2, grid, walls.data(), output);
            stream::pump(source, ramps, stream::kToTheEnd);
            return output.samples;
        },
        [&](ArraySource& source) {
            Collector output(2);
            normalize::FullScaleHold hold(2, output);
            WallRamps ramps(2, grid, walls.data(), hold);
            stream::pump(source, ramps, stream::kToTheEnd);
            output.samples.push_back(static_cast<double>(hold.held()));
            return output.samples;
        },
        [](ArraySource& source) {
            highpass::biquad filters[2];
            for (highpass::biquad& filter : filters) {
                highpass::BiQuad_new(highpass::kHighPass, 0.0, 62.5, 16000.0, 2.0, &filter);
            }
            Collector output(2);
            highpass::Filter filter("in", filters, 2, output);
            stream::pump(source, filter, stream::kToTheEnd);
            output.samples.push_back(filter.sum_of_squares());
            return output.samples;
        },
        [](ArraySource& source) {
            return std::vector<double>{calculate_gains::CalcRMS_GW(source, 90000, 160, 0.02)};
        }};
    for (const Link& link : links) {
        ArraySource whole(input);
        ArraySource cut(input, 1500);
        EXPECT_EQ(link(whole), link(cut));
    }
}

TEST(WallRamps, CutOffWhatLiesBehindTheLastBin) {
    const double walls[] = {1.0, 0.5, 0.0};
    ArraySource source(signals::from([](long long) { return 0.5; }, 11));
    Collector output;
    WallRamps ramps(1, {4, 2, 3}, walls, output);
    stream::pump(source, ramps, stream::kToTheEnd);
    EXPECT_THAT(output.samples,
                ElementsAre(0.5, 0.4375, 0.375, 0.3125, 0.25, 0.1875, 0.125, 0.0625));
}

TEST(FullScaleHold, HoldsWhatAnEncodingWouldWrapAndCounts) {
    std::vector<double> samples{1.0, -1.0, 1.0000001, -7.0, 0.3, 300.0};
    Collector output(2);
    normalize::FullScaleHold hold(2, output);
    hold.process(samples.data(), 3);
    EXPECT_THAT(output.samples, ElementsAre(1.0, -1.0, 1.0, -1.0, 0.3, 1.0));
    EXPECT_EQ(3, hold.held());
}

class SoundEnds : public testing::Test {
  protected:
    /** A writer on a file of its own that throws the failure's reason. */
    SoundWriter writer(const std::string& path) {
        SF_INFO info{0, 8000, 1, kWav16, 0, 0};
        return SoundWriter(open_sound_for_writing(path, info), path, 1, 4096,
                           [](const WriteFailure& failure) {
                               throw std::runtime_error(failure.path + ": " + failure.reason);
                           });
    }

    const TempDir dir;
    std::vector<double> samples = std::vector<double>(10000, 0.25);
};

TEST_F(SoundEnds, AFileThatIsNotWholeOnDiskIsAFailure) {
    SoundWriter whole = writer(dir / "whole.wav");
    whole.process(samples.data(), 10000);
    whole.finish();
    EXPECT_EQ(10000, sound_info(dir / "whole.wav").frames);

    SoundWriter cut = writer(dir / "cut.wav");
    cut.process(samples.data(), 10000);
    // The check reads the file at the path, whichever program has written it.
    std::filesystem::copy_file(dir / "whole.wav", dir / "short.wav");
    ASSERT_EQ(0, truncate((dir / "short.wav").c_str(), 9000));
    std::filesystem::rename(dir / "short.wav", dir / "cut.wav");
    EXPECT_EQ(dir / "cut.wav" + ": the file on disk is not whole", text_of([&] { cut.finish(); }));
}

TEST_F(SoundEnds, AFileWithMoreThanAPadFrameTooManyIsAFailure) {
    for (const std::size_t frames : {10001U, 10002U}) {
        SoundWriter written = writer(dir / "out.wav");
        written.process(samples.data(), 10000);
        write_sound(dir / "longer.wav", {8000, 1, std::vector<double>(frames, 0.25)}, kWav16);
        std::filesystem::rename(dir / "longer.wav", dir / "out.wav");
        EXPECT_EQ(frames == 10001 ? "nothing thrown"
                                  : dir / "out.wav" + ": the file on disk is not whole",
                  text_of([&] { written.finish(); }));
    }
}

TEST_F(SoundEnds, WhatRodeAlongHasMeasuredWhatAReaderWouldMeasure) {
    const Signal input = signals::speech(5.0, 16000, 2);
    const BinGrid grid{800, 100, 101};
    for (const int encoding : {SF_FORMAT_PCM_16, SF_FORMAT_PCM_24, SF_FORMAT_FLOAT}) {
        SCOPED_TRACE(encoding);
        const std::string path = dir / "bins.aiff";
        SF_INFO info{input.frames(), 16000, 2, SF_FORMAT_AIFF | encoding, 0, 0};
        MeasuredRecordings& recordings = MeasuredRecordings::of_this_thread();
        recordings.expect<RmsOfLouderChannel>(path, info, 50);
        SoundWriter written(open_sound_for_writing(path, info), path, 2, 800,
                            [](const WriteFailure&) { FAIL(); });
        ArraySource source(input);
        stream::pump(source, written, stream::kToTheEnd);

        const SoundHandle handle = open_sound_for_reading(path, info);
        SoundSource reader(handle, path, info);
        std::vector<CBin> bins(100);
        std::vector<double> squares(100);
        BinMeter<RmsOfLouderChannel> meter(path, 2, grid, bins.data(), squares.data());
        stream::pump(reader, meter, stream::kToTheEnd);
        EXPECT_EQ(nullptr, recordings.find(path, BinKind::kAllSamples, 800, info));
        EXPECT_EQ(nullptr, recordings.find(path, BinKind::kLouderChannel, 801, info));
        const MeasuredBins* found = recordings.find(path, BinKind::kLouderChannel, 800, info);
        ASSERT_NE(nullptr, found);
        EXPECT_EQ(0, std::memcmp(bins.data(), found->bins.get(), bins.size() * sizeof bins[0]));
        EXPECT_TRUE(std::equal(squares.begin(), squares.end(), found->squares.get()));
        recordings.clear();
    }
    // A recording of another length than was expected leaves its reader to measure.
    SF_INFO info{10001, 8000, 1, kWav16, 0, 0};
    MeasuredRecordings::of_this_thread().expect<RmsOfAllSamples>(dir / "short.wav", info, 50);
    SoundWriter shorter = writer(dir / "short.wav");
    shorter.process(samples.data(), 10000);
    shorter.finish();
    EXPECT_EQ(nullptr, MeasuredRecordings::of_this_thread().find(dir / "short.wav",
                                                                 BinKind::kAllSamples, 400, info));
}

TEST_F(SoundEnds, ADamagedFileGivesWhatCanBeReadAndADefect) {
    const std::string path = dir / "in.flac";
    write_sound(path, signals::speech(5.0, 16000), SF_FORMAT_FLAC | SF_FORMAT_PCM_16);
    std::string bytes = read_text(path);
    std::fill_n(bytes.begin() + static_cast<long>(bytes.size() / 2), 3000, '\x55');
    write_text(path, bytes);
    SF_INFO info;
    const SoundHandle handle = open_sound_for_reading(path, info);
    SoundSource source(handle, path, info);
    Collector output;
    reporting::forget_defect();
    stream::pump(source, output, stream::kToTheEnd);
    const reporting::Defect defect = reporting::first_defect();
    reporting::forget_defect();
    EXPECT_EQ(reporting::DefectKind::kFramesMissing, defect.kind);
    EXPECT_THAT(defect.text, HasSubstr(path + ": cannot be read from frame "));
    EXPECT_EQ(80000, defect.promised);
    EXPECT_LT(defect.read, 80000);
    EXPECT_GT(output.samples.size(), 30000U) << "all in front of the damage";
    EXPECT_LT(output.samples.size(), 80000U);

    const auto fail = [](const SoundHandle&, const std::string&) {
        throw std::runtime_error("a reader that wants all");
    };
    SoundSource strict(open_sound_for_reading(path, info), path, info, fail);
    EXPECT_EQ("a reader that wants all",
              text_of([&] { stream::pump(strict, output, stream::kToTheEnd); }));
}

TEST_F(SoundEnds, BytesBehindTheSamplesMakeTheLibraryZeroTheRest) {
    struct Row {
        const char* name;
        int format;
        long long frames;
        bool zeroes;
    };

    // A pad byte makes an odd number of 8-bit samples even, and is a sample to the library; behind
    // 24-bit samples it is too short for one.
    const Row rows[] = {{"the file ends", kWav16, 101, false},
                        {"pad byte", SF_FORMAT_WAV | SF_FORMAT_PCM_U8, 101, true},
                        {"no pad byte", SF_FORMAT_WAV | SF_FORMAT_PCM_U8, 100, false},
                        {"short pad byte", SF_FORMAT_WAV | SF_FORMAT_PCM_24, 101, false}};
    for (const Row& row : rows) {
        const std::string path = dir / "end.wav";
        write_sound(path, signals::square(0.5, row.frames), row.format);
        SF_INFO info;
        const SoundHandle handle = open_sound_for_reading(path, info);
        EXPECT_EQ(row.zeroes, SoundSource(handle, path, info).zeroes_past_end()) << row.name;
    }
}

}  // namespace
