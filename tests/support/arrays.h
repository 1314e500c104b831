#pragma once

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "Common/stream/stream.h"
#include "tests/support/signals.h"

/** A signal as a source; it gives so many frames at a time at most, or a random number up to that.
 */
class ArraySource : public stream::Source {
  public:
    explicit ArraySource(const Signal& signal, long long most_frames = 1 << 30)
        : signal_(signal), most_frames_(most_frames) {
        info_.frames = signal.frames();
        info_.samplerate = signal.sample_rate_hz;
        info_.channels = signal.channels;
        info_.format = kWavDouble;
    }

    const std::string& name() const override { return name_; }

    const SF_INFO& info() const override { return info_; }

    long long read(double* samples, long long frames) override {
        const long long most = most_frames_ < 1 << 30 ? 1 + random_() % most_frames_ : most_frames_;
        const long long count = std::min({frames, most, info_.frames - position_});
        std::copy_n(signal_.samples.begin() + position_ * info_.channels, count * info_.channels,
                    samples);
        position_ += count;
        return count;
    }

    bool seek(long long frame) override {
        position_ = frame;
        return true;
    }

    long long position() const override { return position_; }

    bool zeroes_past_end() override { return zeroes; }

    bool zeroes = false;

  private:
    Signal signal_;
    long long most_frames_;
    std::mt19937 random_;
    std::string name_ = "array";
    SF_INFO info_{};
    long long position_ = 0;
};

/** Keeps what it takes. */
class Collector : public stream::Receiver {
  public:
    explicit Collector(int channel_count = 1) : channels(channel_count) {}

    void process(double* block, long long frames) override {
        samples.insert(samples.end(), block, block + frames * channels);
    }

    void finish() override { ++ends; }

    int channels;
    std::vector<double> samples;
    int ends = 0;
};
