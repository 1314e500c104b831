#include "leveling/conversation/correlation.h"

#include <algorithm>
#include <cmath>

#include "leveling/audio/sound_file.h"
#include "leveling/preparation/sections.h"

namespace quorvane {
namespace {

using Spectrum = std::vector<std::complex<double>>;

constexpr std::size_t kBlock = 400;     // samples of a piece that are read at once
constexpr double kLowest_hz = 150;      // of speech
constexpr double kHighestOfRate = 0.4;  // what lies above it would fold back

}  // namespace

PieceReader::PieceReader(const std::string& path, int rate_hz)
    : file_(open_to_read(path)),
      channels_(static_cast<std::size_t>(file_.channels())),
      step_(std::max(1, file_.samplerate() / rate_hz)),
      rate_hz_(static_cast<double>(file_.samplerate()) / step_) {}

double PieceReader::seconds() const {
    return static_cast<double>(file_.frames()) / file_.samplerate();
}

std::vector<double> PieceReader::read(double from_s, std::size_t count) {
    std::vector<double> samples(count);
    const auto first = std::llround(from_s * rate_hz_);
    const auto before = static_cast<std::size_t>(std::max(0LL, -first));
    const auto at = static_cast<sf_count_t>(std::max(0LL, first) * step_);
    if (before >= count || at >= file_.frames() || file_.seek(at, SF_SEEK_SET) != at) {
        return samples;
    }
    const int rate_hz = file_.samplerate();
    FilterChain filter(
        {low_pass(kHighestOfRate * rate_hz_, 0.54, rate_hz),
         low_pass(kHighestOfRate * rate_hz_, 1.31, rate_hz), high_pass(kLowest_hz, 0.71, rate_hz)},
        1);
    std::vector<double> mono(static_cast<std::size_t>(step_) * kBlock);
    std::vector<double> block(mono.size() * channels_);
    for (std::size_t done = before; done < count;) {
        const sf_count_t got = file_.readf(block.data(), static_cast<sf_count_t>(mono.size()));
        if (got <= 0) {
            break;
        }
        for (std::size_t i = 0; i < static_cast<std::size_t>(got); ++i) {
            mono[i] = 0;
            for (std::size_t channel = 0; channel < channels_; ++channel) {
                mono[i] += block[i * channels_ + channel];
            }
        }
        filter.process(mono.data(), got);
        for (std::size_t i = 0; i < static_cast<std::size_t>(got) && done < count;
             i += static_cast<std::size_t>(step_)) {
            samples[done++] = mono[i];
        }
    }
    return samples;
}

Phases phases_of(const std::vector<double>& samples, const Fft& fft) {
    Spectrum spectrum(samples.begin(), samples.end());
    spectrum.resize(fft.size());
    fft.forward(spectrum);
    Phases phases(fft.size() / 2 + 1);
    for (std::size_t i = 0; i < phases.size(); ++i) {
        const std::complex<double> value = spectrum[i];
        const double size = std::sqrt(value.real() * value.real() + value.imag() * value.imag());
        phases[i] = size > 0 ? std::complex<float>(value / size) : std::complex<float>();
    }
    return phases;
}

std::vector<float> correlation(const Phases& one, const Phases& other, const Fft& fft) {
    Spectrum product(fft.size());
    double energy = 0;
    for (std::size_t i = 0; i < one.size(); ++i) {
        const std::complex<double> a(one[i]);
        const std::complex<double> b(other[i]);
        const std::complex<double> turned(a.real() * b.real() + a.imag() * b.imag(),
                                          a.imag() * b.real() - a.real() * b.imag());
        product[i] = turned;
        product[(fft.size() - i) % fft.size()] = std::conj(turned);
        energy += 2 * (turned.real() * turned.real() + turned.imag() * turned.imag());
    }
    fft.inverse(product);
    const double rms = std::sqrt(energy);  // of the inverse, which is not divided (Parseval)
    std::vector<float> result(fft.size());
    for (std::size_t i = 0; i < result.size() && rms > 0; ++i) {
        result[i] = static_cast<float>(product[i].real() / rms);
    }
    return result;
}

}  // namespace quorvane
