#pragma once

#include <gtest/gtest.h>
#include <quorvane/quorvane.h>
#include <sndfile.h>

#include <memory>
#include <string>
#include <vector>

#include "tests/support/fixtures.h"
#include "tests/support/signals.h"

/** Frames in memory as the library takes them. */
struct Frames {
    int type = QUORVANE_FLOAT32;
    int rate_hz = 16000;
    int channels = 1;
    std::vector<char> bytes;  // interleaved samples

    std::size_t frame_bytes() const {
        const std::size_t sample = type == QUORVANE_FLOAT64 ? 8 : type == QUORVANE_INT16 ? 2 : 4;
        return sample * static_cast<std::size_t>(channels);
    }

    std::size_t frames() const { return bytes.size() / frame_bytes(); }

    quorvane_audio audio() const {
        quorvane_audio audio{};
        audio.size = sizeof audio;
        audio.type = type;
        audio.sample_rate_hz = rate_hz;
        audio.channels = channels;
        audio.frames = frames();
        audio.samples = bytes.data();
        return audio;
    }
};

inline quorvane_buffer buffer_of(std::vector<char>& bytes) {
    quorvane_buffer buffer{};
    buffer.size = sizeof buffer;
    buffer.samples = bytes.data();
    return buffer;
}

inline quorvane_options default_options() {
    quorvane_options options;
    quorvane_options_init(&options, sizeof options);
    return options;
}

/** The format of WAV files with such samples. */
inline int wav_format(int type) {
    switch (type) {
        case QUORVANE_FLOAT32:
            return kWavFloat;
        case QUORVANE_FLOAT64:
            return kWavDouble;
        case QUORVANE_INT16:
            return kWav16;
        default:
            return SF_FORMAT_WAV | SF_FORMAT_PCM_32;
    }
}

/** The samples of a file as they stand in it. */
inline Frames read_frames(const std::string& path, int type) {
    const SF_INFO info = sound_info(path);
    Frames frames{type, info.samplerate, info.channels, {}};
    frames.bytes.resize(static_cast<std::size_t>(info.frames) * frames.frame_bytes());
    SF_INFO opened{};
    SNDFILE* const file = sf_open(path.c_str(), SFM_READ, &opened);
    void* const to = frames.bytes.data();
    switch (type) {
        case QUORVANE_FLOAT32:
            sf_readf_float(file, static_cast<float*>(to), info.frames);
            break;
        case QUORVANE_FLOAT64:
            sf_readf_double(file, static_cast<double*>(to), info.frames);
            break;
        case QUORVANE_INT16:
            sf_readf_short(file, static_cast<short*>(to), info.frames);
            break;
        default:
            sf_readf_int(file, static_cast<int*>(to), info.frames);
    }
    sf_close(file);
    return frames;
}

/** A signal as samples of a type, as a file of it would hold them. */
inline Frames frames_of(const Signal& signal, int type) {
    const TempDir dir;
    write_sound(dir / "signal.wav", signal, wav_format(type));
    return read_frames(dir / "signal.wav", type);
}

using Handle = std::unique_ptr<quorvane_leveler, void (*)(quorvane_leveler*)>;

inline Handle new_leveler() {
    return {quorvane_new(), quorvane_free};
}

inline Handle new_leveler(const quorvane_options& options) {
    Handle leveler = new_leveler();
    EXPECT_EQ(QUORVANE_OK, quorvane_configure(leveler.get(), &options))
        << quorvane_last_error(leveler.get());
    return leveler;
}

/** What quorvane_level makes of the frames. */
inline std::vector<char> leveled(const Handle& leveler, const Frames& frames) {
    std::vector<char> result(frames.bytes.size());
    const quorvane_audio audio = frames.audio();
    const quorvane_buffer buffer = buffer_of(result);
    EXPECT_EQ(QUORVANE_OK, quorvane_level(leveler.get(), &audio, &buffer))
        << quorvane_last_error(leveler.get());
    return result;
}
