#pragma once

#include <sndfile.h>

#include <functional>
#include <string>
#include <vector>

/** Interleaved samples, full scale +-1.0. */
struct Signal {
    int sample_rate_hz = 44100;
    int channels = 1;
    std::vector<double> samples;

    long long frames() const { return static_cast<long long>(samples.size()) / channels; }
};

/** Hz: a frame lasts a millisecond, and a bin of 50 ms holds 50. */
constexpr int kMillisecondRate = 1000;

namespace signals {

/** Every frame holds f(frame) in all channels. */
Signal from(const std::function<double(long long)>& f,
            long long frames,
            int sample_rate_hz = 44100,
            int channels = 1);

Signal sine(double amplitude,
            double frequency_hz,
            double seconds,
            int sample_rate_hz = 44100,
            int channels = 1);

/** Alternates between +amplitude and -amplitude: its RMS and its peak are the amplitude. */
Signal square(double amplitude, long long frames, int sample_rate_hz = 44100, int channels = 1);

Signal silence(long long frames, int sample_rate_hz = 44100, int channels = 1);

/** Bursts of seeded noise with pauses between them; the level changes every few seconds. */
Signal speech(double seconds, int sample_rate_hz = 44100, int channels = 1);

/**
 * Six passages of speech at speech_db (0: as speech() gives it), each second one whisper_db lower,
 * with up to three seconds of faint noise between them, and what makes a target level hard to
 * reach: ticks of a few samples in the noise, tick_every_s apart (0: none), and a door that slams.
 */
struct Knocks {
    double speech_db;
    double whisper_db;
    double tick;  // its amplitude
    double tick_every_s;
    int tick_samples;
    bool slam;
    unsigned seed;
};

Signal knocked_speech(const Knocks& knocks, int sample_rate_hz);

/** One signal after the other; rates and channels must agree. */
Signal join(const std::vector<Signal>& parts);

/** Two mono signals of equal length as one stereo signal. */
Signal stereo(const Signal& left, const Signal& right);

}  // namespace signals

constexpr int kWav16 = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
constexpr int kWavFloat = SF_FORMAT_WAV | SF_FORMAT_FLOAT;
constexpr int kWavDouble = SF_FORMAT_WAV | SF_FORMAT_DOUBLE;

void write_sound(const std::string& path, const Signal& signal, int format = kWavDouble);
Signal read_sound(const std::string& path);
SF_INFO sound_info(const std::string& path);

/** Largest absolute sample. */
double peak_of(const Signal& signal);

/** RMS of the frames from..to of one channel. */
double rms_of(const Signal& signal, long long from, long long to, int channel = 0);
