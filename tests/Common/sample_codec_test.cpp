#include "Common/audio/sample_codec.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

#include "Common/audio/sound_handle.h"
#include "tests/support/fixtures.h"

namespace {

/** Every 16-bit step and what lies just beside a half of one, both ends, and far beyond them. */
std::vector<double> samples_to_try() {
    std::vector<double> samples{0.0, -0.0, 1.0, -1.0, 1.5, -1.5, 2.0, 3.7e4, -7e4, 1e10, -1e10};
    for (int step = -33000; step <= 33000; ++step) {
        const double half = (step + 0.5) / 32767.0;
        samples.insert(samples.end(), {step / 32768.0, half, std::nextafter(half, 2.0)});
    }
    for (int step = -130; step <= 130; ++step) {
        samples.push_back((step + 0.5) / 127.0);
    }
    std::mt19937 random(4);
    std::uniform_real_distribution<double> any(-1.2, 1.2);
    for (int i = 0; i < 20000; ++i) {
        samples.push_back(any(random));
    }
    return samples;
}

/** A file's samples as the library gives them, or its bytes through the codec. */
std::vector<double> read_back(const std::string& path, bool raw) {
    SF_INFO info{};
    const SoundHandle file = open_sound_for_reading(path, info);
    std::vector<double> samples(static_cast<std::size_t>(info.frames));
    if (!raw) {
        sf_read_double(file.get(), samples.data(), info.frames);
        return samples;
    }
    const SampleCodec codec = SampleCodec::of(file.get());
    std::vector<unsigned char> bytes(samples.size() * codec.bytes());
    sf_read_raw(file.get(), bytes.data(), static_cast<sf_count_t>(bytes.size()));
    codec.decode(bytes.data(), samples.data(), samples.size());
    return samples;
}

TEST(SampleCodec, WritesTheLibrarysBytesAndReadsTheLibrarysSamples) {
    const TempDir folder;
    const std::vector<double> samples = samples_to_try();
    int formats = 0;
    for (const int container : {SF_FORMAT_WAV, SF_FORMAT_WAVEX, SF_FORMAT_RF64, SF_FORMAT_W64,
                                SF_FORMAT_AIFF, SF_FORMAT_AU, SF_FORMAT_CAF}) {
        for (const int encoding :
             {SF_FORMAT_PCM_S8, SF_FORMAT_PCM_U8, SF_FORMAT_PCM_16, SF_FORMAT_PCM_24,
              SF_FORMAT_PCM_32, SF_FORMAT_FLOAT, SF_FORMAT_DOUBLE}) {
            for (const int order : {SF_ENDIAN_FILE, SF_ENDIAN_LITTLE, SF_ENDIAN_BIG}) {
                SF_INFO info{};
                info.format = container | encoding | order;
                info.channels = 1;
                info.samplerate = 44100;
                const bool floats = encoding == SF_FORMAT_FLOAT || encoding == SF_FORMAT_DOUBLE;
                if (sf_format_check(&info) == SF_FALSE || (container == SF_FORMAT_RF64 && floats)) {
                    continue;
                }
                SCOPED_TRACE(format_name(info.format) + " " + std::to_string(order));
                ++formats;
                const std::string theirs = folder / "theirs";
                const std::string ours = folder / "ours";
                {
                    const SoundHandle file = open_sound_for_writing(theirs, info);
                    sf_write_double(file.get(), samples.data(),
                                    static_cast<sf_count_t>(samples.size()));
                    const SoundHandle raw = open_sound_for_writing(ours, info);
                    const SampleCodec codec = SampleCodec::of(raw.get());
                    ASSERT_TRUE(codec.is_plain());
                    std::vector<unsigned char> bytes(samples.size() * codec.bytes());
                    codec.encode(samples.data(), bytes.data(), samples.size());
                    sf_write_raw(raw.get(), bytes.data(), static_cast<sf_count_t>(bytes.size()));
                }
                const std::string written = read_text(theirs);
                const bool same_bytes = written == read_text(ours);
                EXPECT_TRUE(same_bytes);
                const bool same_samples = read_back(theirs, false) == read_back(theirs, true);
                EXPECT_TRUE(same_samples);
            }
        }
    }
    EXPECT_LT(80, formats);
}

TEST(SampleCodec, LeavesToTheLibraryWhatItDoesNotKnow) {
    const TempDir folder;
    for (const int format : {SF_FORMAT_FLAC | SF_FORMAT_PCM_16, SF_FORMAT_WAV | SF_FORMAT_ULAW,
                             SF_FORMAT_PAF | SF_FORMAT_PCM_24}) {
        SF_INFO info{};
        info.format = format;
        info.channels = 1;
        info.samplerate = 44100;
        const SoundHandle file = open_sound_for_writing(folder / "other", info);
        EXPECT_FALSE(SampleCodec::of(file.get()).is_plain()) << format_name(format);
    }
    SF_INFO info{};
    info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
    info.channels = 1;
    info.samplerate = 44100;
    const SoundHandle file = open_sound_for_writing(folder / "clipped.wav", info);
    sf_command(file.get(), SFC_SET_CLIPPING, nullptr, SF_TRUE);
    EXPECT_FALSE(SampleCodec::of(file.get()).is_plain());
}

}  // namespace
