#include "leveling/conversation/likeness.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <exception>
#include <memory>
#include <sndfile.hh>

#include "leveling/audio/fft.h"
#include "leveling/audio/sound_file.h"
#include "leveling/conversation/modes.h"
#include "leveling/preparation/levels.h"
#include "leveling/preparation/sections.h"

/*
 * Spill shows in the cross-correlation of two tracks with the phase transform (C. H. Knapp and G.
 * C. Carter, "The generalized correlation method for estimation of time delay", IEEE Trans. ASSP 24
 * (1976)): every frequency counts alike, so that a sound that is 30 dB lower on the one track,
 * among louder ones, still gives a sharp peak at its delay.
 */

namespace quorvane {
namespace {

constexpr std::size_t kPieces = 14;
constexpr std::size_t kFirstPieces = 4;  // where none of them has a peak, none is expected
constexpr int kRate_hz = 8000;           // of the pieces, about
constexpr std::size_t kSize = 1 << 16;   // samples: 8 s
constexpr std::size_t kBin = 400;        // samples: 50 ms
constexpr double kMostDelay_s = 0.06;    // twenty metres of air
constexpr double kPeak = 9;              // of the correlation, over its rms: noise does not reach 6
constexpr std::size_t kLeastPeaks = 4;   // pieces
constexpr std::size_t kNeighbours = 16;  // files that each is compared with

constexpr double kNoiseShare = 0.1;
constexpr double kAboveNoise_db = 6;
constexpr double kTurns_db = 7;        // between the two modes of the levels' difference
constexpr double kLeastShare = 0.05;   // of the bins, in each mode
constexpr double kSilentGuest_db = 6;  // only one ever speaks: so much lower on the other track
constexpr double kLeastLag_s = 0.001;  // a copy of a recording has none

using Spectrum = std::vector<std::complex<double>>;

/** The half of a real signal's spectrum that the other half follows from, of size 1 everywhere. */
using Phases = std::vector<std::complex<float>>;

/** One recording, read at spread places. */
class Pieces {
  public:
    explicit Pieces(const std::string& path)
        : file_(open_to_read(path)),
          channels_(static_cast<std::size_t>(file_.channels())),
          step_(std::max(1, file_.samplerate() / kRate_hz)),
          rate_hz_(static_cast<double>(file_.samplerate()) / step_) {}

    double rate_hz() const { return rate_hz_; }

    /** Mono, at about kRate_hz. */
    std::vector<double> read(std::size_t piece) {
        const auto frames = static_cast<sf_count_t>(kSize) * step_;
        const sf_count_t room = std::max<sf_count_t>(0, file_.frames() - frames);
        const auto at = static_cast<sf_count_t>(static_cast<double>(room) *
                                                (static_cast<double>(piece) + 0.5) / kPieces);
        std::vector<double> samples(kSize);
        if (file_.seek(at, SF_SEEK_SET) != at) {
            return samples;
        }
        FilterChain filter({low_pass(0.4 * rate_hz_, 0.54, file_.samplerate()),
                            low_pass(0.4 * rate_hz_, 1.31, file_.samplerate()),
                            high_pass(150, 0.71, file_.samplerate())},
                           1);
        std::vector<double> block(static_cast<std::size_t>(step_) * kBin * channels_);
        std::vector<double> mono(static_cast<std::size_t>(step_) * kBin);
        for (std::size_t done = 0; done < kSize;) {
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
            for (std::size_t i = 0; i < static_cast<std::size_t>(got) && done < kSize;
                 i += static_cast<std::size_t>(step_)) {
                samples[done++] = mono[i];
            }
        }
        return samples;
    }

  private:
    SndfileHandle file_;
    std::size_t channels_;
    int step_;
    double rate_hz_;
};

struct Recording {
    std::vector<Phases> phases;    // of each piece
    std::vector<float> levels_db;  // of bins of 50 ms, piece after piece
    double rate_hz = 0;
};

void add_piece(Recording& recording, const std::vector<double>& samples, const Fft& fft) {
    for (std::size_t bin = 0; bin + kBin <= samples.size(); bin += kBin) {
        double power = 0;
        for (std::size_t i = bin; i < bin + kBin; ++i) {
            power += samples[i] * samples[i];
        }
        recording.levels_db.push_back(static_cast<float>(level_of_power(power / kBin)));
    }
    Spectrum spectrum(samples.begin(), samples.end());
    fft.forward(spectrum);
    Phases phases(kSize / 2 + 1);
    for (std::size_t i = 0; i < phases.size(); ++i) {
        const std::complex<double> value = spectrum[i];
        const double size = std::sqrt(value.real() * value.real() + value.imag() * value.imag());
        phases[i] = size > 0 ? std::complex<float>(value / size) : std::complex<float>();
    }
    recording.phases.push_back(std::move(phases));
}

/** The delay of the highest peak, seconds, and its height over the correlation's rms. */
struct Peak {
    double delay_s = 0;
    double height = 0;
};

Peak correlate(const Phases& one, const Phases& other, double rate_hz, const Fft& fft) {
    Spectrum product(kSize);
    double energy = 0;
    for (std::size_t i = 0; i < one.size(); ++i) {
        const std::complex<double> a(one[i]);
        const std::complex<double> b(other[i]);
        const std::complex<double> turned(a.real() * b.real() + a.imag() * b.imag(),
                                          a.imag() * b.real() - a.real() * b.imag());
        product[i] = turned;
        product[(kSize - i) % kSize] = std::conj(turned);
        energy += 2 * (turned.real() * turned.real() + turned.imag() * turned.imag());
    }
    fft.inverse(product);
    const double rms = std::sqrt(energy);  // of the inverse, which is not divided (Parseval)
    const auto most = static_cast<long long>(kMostDelay_s * rate_hz);
    Peak peak;
    for (long long lag = -most; lag <= most && rms > 0; ++lag) {
        const auto at =
            static_cast<std::size_t>(lag < 0 ? lag + static_cast<long long>(kSize) : lag);
        const double height = product[at].real() / rms;
        if (height > peak.height) {
            peak = {static_cast<double>(lag) / rate_hz, height};
        }
    }
    return peak;
}

/** Whether the levels of two tracks differ as those of two microphones in one room do. */
bool take_turns(const Recording& one, const Recording& other, bool has_delay) {
    const double noise_one = percentile(one.levels_db, kNoiseShare) + kAboveNoise_db;
    const double noise_other = percentile(other.levels_db, kNoiseShare) + kAboveNoise_db;
    std::vector<float> differences;
    double sum = 0;
    for (std::size_t bin = 0; bin < one.levels_db.size(); ++bin) {
        if (static_cast<double>(one.levels_db[bin]) > noise_one ||
            static_cast<double>(other.levels_db[bin]) > noise_other) {
            differences.push_back(one.levels_db[bin] - other.levels_db[bin]);
            sum += static_cast<double>(differences.back());
        }
    }
    if (differences.empty()) {
        return false;
    }
    const auto count = static_cast<double>(differences.size());
    const Modes modes = split_at_modes(differences);
    const auto above = static_cast<double>(std::count_if(
        differences.begin(), differences.end(),
        [&](float difference) { return static_cast<double>(difference) > modes.threshold; }));
    const double smaller = std::min(above, count - above) / count;
    return (modes.distance() > kTurns_db && smaller > kLeastShare) ||
           (has_delay && std::fabs(sum / count) > kSilentGuest_db);
}

bool are_tracks(const Recording& one, const Recording& other, const Fft& fft) {
    if (one.rate_hz != other.rate_hz) {
        return false;
    }
    std::size_t peaks = 0;
    std::size_t delayed = 0;
    for (std::size_t piece = 0; piece < kPieces; ++piece) {
        if (piece == kFirstPieces && peaks == 0) {
            return false;
        }
        // In an order that is spread over the whole, too.
        const std::size_t place = piece * 5 % kPieces;
        const Peak peak = correlate(one.phases[place], other.phases[place], one.rate_hz, fft);
        peaks += peak.height > kPeak ? 1 : 0;
        delayed += peak.height > kPeak && std::fabs(peak.delay_s) >= kLeastLag_s ? 1 : 0;
    }
    return peaks >= kLeastPeaks && take_turns(one, other, 2 * delayed > peaks);
}

std::unique_ptr<Recording> read_recording(const std::string& path, const Fft& fft) {
    try {
        Pieces pieces(path);
        auto recording = std::make_unique<Recording>();
        recording->rate_hz = pieces.rate_hz();
        for (std::size_t piece = 0; piece < kPieces; ++piece) {
            add_piece(*recording, pieces.read(piece), fft);
        }
        return recording;
    } catch (const std::exception&) {
        return nullptr;  // its own worker will report why
    }
}

}  // namespace

std::vector<std::vector<std::size_t>> find_conversations(
    const std::vector<std::string>& recordings) {
    const Fft fft(kSize);
    std::vector<std::unique_ptr<Recording>> read(recordings.size());
    std::vector<std::vector<std::size_t>> sets;
    std::vector<std::size_t> set_of(recordings.size(), recordings.size());
    for (std::size_t i = 0; i < recordings.size(); ++i) {
        read[i] = read_recording(recordings[i], fft);
        const std::size_t first = i > kNeighbours ? i - kNeighbours : 0;
        if (first > 0) {
            read[first - 1].reset();
        }
        for (std::size_t j = first; j < i && read[i]; ++j) {
            if (!read[j] || !are_tracks(*read[j], *read[i], fft)) {
                continue;
            }
            if (set_of[j] == recordings.size()) {
                set_of[j] = sets.size();
                sets.push_back({j});
            }
            set_of[i] = set_of[j];
            sets[set_of[j]].push_back(i);
            break;
        }
    }
    return sets;
}

}  // namespace quorvane
