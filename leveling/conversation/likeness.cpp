#include "leveling/conversation/likeness.h"

#include <algorithm>
#include <cmath>
#include <exception>
#include <memory>

#include "leveling/conversation/correlation.h"
#include "leveling/conversation/modes.h"
#include "leveling/preparation/levels.h"

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

constexpr double kQuietShare = 0.1;
constexpr double kAboveQuiet_db = 6;
constexpr double kTurns_db = 7;        // between the two modes of the levels' difference
constexpr double kLeastShare = 0.05;   // of the bins, in each mode
constexpr double kSilentGuest_db = 6;  // only one ever speaks: so much lower on the other track
constexpr double kLeastLag_s = 0.001;  // a copy of a recording has none

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
    recording.phases.push_back(phases_of(samples, fft));
}

/** The delay of the highest peak, seconds, and its height over the correlation's rms. */
struct Peak {
    double delay_s = 0;
    double height = 0;
};

Peak correlate(const Phases& one, const Phases& other, double rate_hz, const Fft& fft) {
    const std::vector<float> heights = correlation(one, other, fft);
    const auto most = static_cast<long long>(kMostDelay_s * rate_hz);
    Peak peak;
    for (long long lag = -most; lag <= most; ++lag) {
        const auto at =
            static_cast<std::size_t>(lag < 0 ? lag + static_cast<long long>(kSize) : lag);
        const auto height = static_cast<double>(heights[at]);
        if (height > peak.height) {
            peak = {static_cast<double>(lag) / rate_hz, height};
        }
    }
    return peak;
}

/** Whether the levels of two tracks differ as those of two microphones in one room do. */
bool take_turns(const Recording& one, const Recording& other, bool has_delay) {
    const double noise_one = percentile(one.levels_db, kQuietShare) + kAboveQuiet_db;
    const double noise_other = percentile(other.levels_db, kQuietShare) + kAboveQuiet_db;
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
        PieceReader pieces(path, kRate_hz);
        const double room_s = std::max(0.0, pieces.seconds() - kSize / pieces.rate_hz());
        auto recording = std::make_unique<Recording>();
        recording->rate_hz = pieces.rate_hz();
        for (std::size_t piece = 0; piece < kPieces; ++piece) {
            const double at_s = room_s * (static_cast<double>(piece) + 0.5) / kPieces;
            add_piece(*recording, pieces.read(at_s, kSize), fft);
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
