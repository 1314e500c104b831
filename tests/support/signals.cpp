#include "tests/support/signals.h"

#include <algorithm>
#include <cmath>
#include <random>
#include <stdexcept>

namespace signals {

Signal from(const std::function<double(long long)>& f,
            long long frames,
            int sample_rate_hz,
            int channels) {
    Signal signal{sample_rate_hz, channels, {}};
    for (long long frame = 0; frame < frames; ++frame) {
        signal.samples.insert(signal.samples.end(), static_cast<std::size_t>(channels), f(frame));
    }
    return signal;
}

Signal sine(
    double amplitude, double frequency_hz, double seconds, int sample_rate_hz, int channels) {
    const double step = 2.0 * std::acos(-1.0) * frequency_hz / sample_rate_hz;
    return from([=](long long i) { return amplitude * std::sin(step * static_cast<double>(i)); },
                std::llround(seconds * sample_rate_hz), sample_rate_hz, channels);
}

Signal square(double amplitude, long long frames, int sample_rate_hz, int channels) {
    return from([=](long long i) { return i % 2 == 0 ? amplitude : -amplitude; }, frames,
                sample_rate_hz, channels);
}

Signal silence(long long frames, int sample_rate_hz, int channels) {
    return from([](long long) { return 0.0; }, frames, sample_rate_hz, channels);
}

Signal speech(double seconds, int sample_rate_hz, int channels) {
    std::mt19937 random(4711);
    const auto uniform = [&random](double low, double high) {
        return low + (high - low) * (static_cast<double>(random()) / 4294967296.0);
    };
    Signal signal{sample_rate_hz, channels, {}};
    const std::size_t wanted =
        static_cast<std::size_t>(seconds * sample_rate_hz) * static_cast<std::size_t>(channels);
    double passage_level = 0.5;
    double passage_left_s = 0.0;
    while (signal.samples.size() < wanted) {
        if (passage_left_s <= 0.0) {
            passage_level = passage_level > 0.2 ? 0.08 : 0.5;
            passage_left_s = 3.0;
        }
        const double burst_s = uniform(0.08, 0.4);
        const double pause_s = uniform(0.02, 0.15);
        for (double t = 0.0; t < burst_s + pause_s; t += 1.0 / sample_rate_hz) {
            const double level = t < burst_s ? passage_level : 0.0005;
            for (int channel = 0; channel < channels; ++channel) {
                signal.samples.push_back(level * uniform(-1.0, 1.0));
            }
        }
        passage_left_s -= burst_s + pause_s;
    }
    signal.samples.resize(wanted);
    return signal;
}

Signal knocked_speech(const Knocks& knocks, int sample_rate_hz) {
    std::mt19937 random(knocks.seed);
    const auto uniform = [&random](double low, double high) {
        return low + (high - low) * (static_cast<double>(random()) / 4294967296.0);
    };
    Signal signal{sample_rate_hz, 1, {}};
    for (int passage = 0; passage < 6; ++passage) {
        const double level_db = knocks.speech_db + (passage % 2) * knocks.whisper_db;
        const double gain = std::pow(10.0, level_db / 20.0);
        for (const double sample : speech(uniform(1.0, 4.0), sample_rate_hz).samples) {
            signal.samples.push_back(gain * sample);
        }
        const double pause_s = uniform(0.3, 3.0);
        const std::size_t begin = signal.samples.size();
        for (double t = 0.0; t < pause_s; t += 1.0 / sample_rate_hz) {
            signal.samples.push_back(0.001 * uniform(-1.0, 1.0));
        }
        for (double t = knocks.tick_every_s / 2; knocks.tick_every_s > 0.0 && t < pause_s - 0.01;
             t += knocks.tick_every_s) {
            std::fill_n(signal.samples.begin() + static_cast<std::ptrdiff_t>(begin) +
                            static_cast<std::ptrdiff_t>(t * sample_rate_hz),
                        knocks.tick_samples, knocks.tick);
        }
    }
    const std::size_t door = static_cast<std::size_t>(0.6 * static_cast<double>(signal.frames()));
    for (int i = 0; knocks.slam && i < sample_rate_hz / 3; ++i) {
        signal.samples[door + static_cast<std::size_t>(i)] =
            0.97 * std::exp(-12.0 * i / sample_rate_hz) * uniform(-1.0, 1.0);
    }
    return signal;
}

Signal join(const std::vector<Signal>& parts) {
    Signal whole = parts.front();
    for (std::size_t i = 1; i < parts.size(); ++i) {
        whole.samples.insert(whole.samples.end(), parts[i].samples.begin(), parts[i].samples.end());
    }
    return whole;
}

Signal stereo(const Signal& left, const Signal& right) {
    Signal both{left.sample_rate_hz, 2, {}};
    for (std::size_t i = 0; i < left.samples.size(); ++i) {
        both.samples.push_back(left.samples[i]);
        both.samples.push_back(right.samples[i]);
    }
    return both;
}

}  // namespace signals

void write_sound(const std::string& path, const Signal& signal, int format) {
    SF_INFO info{};
    info.format = format;
    info.channels = signal.channels;
    info.samplerate = signal.sample_rate_hz;
    SNDFILE* file = sf_open(path.c_str(), SFM_WRITE, &info);
    if (file == nullptr) {
        throw std::runtime_error(path + ": " + sf_strerror(nullptr));
    }
    sf_writef_double(file, signal.samples.data(), signal.frames());
    sf_close(file);
}

Signal read_sound(const std::string& path) {
    SF_INFO info{};
    SNDFILE* file = sf_open(path.c_str(), SFM_READ, &info);
    if (file == nullptr) {
        throw std::runtime_error(path + ": " + sf_strerror(nullptr));
    }
    Signal signal{info.samplerate, info.channels, {}};
    signal.samples.resize(static_cast<std::size_t>(info.frames * info.channels));
    signal.samples.resize(static_cast<std::size_t>(
        sf_readf_double(file, signal.samples.data(), info.frames) * info.channels));
    sf_close(file);
    return signal;
}

SF_INFO sound_info(const std::string& path) {
    SF_INFO info{};
    sf_close(sf_open(path.c_str(), SFM_READ, &info));
    return info;
}

double peak_of(const Signal& signal) {
    double peak = 0.0;
    for (const double sample : signal.samples) {
        peak = std::max(peak, std::fabs(sample));
    }
    return peak;
}

double rms_of(const Signal& signal, long long from, long long to, int channel) {
    double sum = 0.0;
    for (long long frame = from; frame < to; ++frame) {
        const double x =
            signal.samples[static_cast<std::size_t>(frame * signal.channels + channel)];
        sum += x * x;
    }
    return std::sqrt(sum / static_cast<double>(to - from));
}
