#include "leveling/conversation/clocks.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <map>
#include <utility>
#include <vector>

#include "leveling/conversation/correlation.h"

namespace quorvane {
namespace {

constexpr std::size_t kNearSize = 1 << 16;

}  // namespace

/** What of the reference is correlated with every track. */
struct ReferencePieces {
    Fft fft{kNearSize};
    std::map<long long, Phases> phases;  // by the first sample
};

namespace {

constexpr std::size_t kClockPieces = 14;

// Near: pieces of 8 s with lags that hold the drift of two hours.
constexpr int kNearRate_hz = 8000;
constexpr double kNear_s = 1.5;

// Far: 11 s of the reference in 131 s of the track.
constexpr int kFarRate_hz = 4000;
constexpr std::size_t kFarSize = 1 << 19;
constexpr double kFar_s = 60;
constexpr double kFarPiece_s = 11;
constexpr std::size_t kFarAgreeing = 3;  // pieces
constexpr std::size_t kFarPieces = 8;    // of those that are spread, at most
constexpr std::size_t kNearFirst = 5;    // where none of them has a peak, none is expected
constexpr double kSmearing_ppm = 10;     // over a piece: two thirds of a sample
constexpr double kSure = 0.5;            // of the pieces agree

constexpr double kLeastHeight = 6.5;       // over the rms; noise over so many lags stays below 5.5
constexpr std::size_t kMostPeaks = 8;      // of a piece
constexpr double kMostDrift = 200e-6;      // 150 ppm, and the error of lags
constexpr double kOnLine_s = 0.0008;       // off the line, and still on it
constexpr std::size_t kLeastAgreeing = 4;  // pieces
constexpr double kRoom_s = 0.08;         // between the lines of two directions: 27 m there and back
constexpr double kNotSound_s = 0.035;    // longer than spill is on its way
constexpr double kLeastDrift_s = 0.003;  // over the whole length

struct Lag {
    double at_s = 0;   // the middle of the piece, in the reference
    double lag_s = 0;  // of the track
    double height = 0;
    std::size_t piece = 0;
};

struct Line {
    double offset_s = 0;
    double slope = 0;

    double at(double moment_s) const { return offset_s + slope * moment_s; }
};

/** The greatest peak around each local maximum, the highest first, by parabolas between samples. */
std::vector<Lag> peaks_of(const std::vector<float>& heights, double rate_hz, long long most) {
    const auto size = static_cast<long long>(heights.size());
    const auto height = [&](long long lag) {
        return static_cast<double>(heights[static_cast<std::size_t>((lag + size) % size)]);
    };
    std::vector<Lag> peaks;
    for (long long lag = -most; lag <= most; ++lag) {
        const double here = height(lag);
        if (here < kLeastHeight || here < height(lag - 1) || here <= height(lag + 1)) {
            continue;
        }
        const double curvature = height(lag - 1) - 2 * here + height(lag + 1);
        const double shift =
            curvature < 0 ? (height(lag - 1) - height(lag + 1)) / (2 * curvature) : 0;
        peaks.push_back({0, (static_cast<double>(lag) + shift) / rate_hz, here, 0});
    }
    std::sort(peaks.begin(), peaks.end(),
              [](const Lag& a, const Lag& b) { return a.height > b.height; });
    peaks.resize(std::min(peaks.size(), kMostPeaks));
    return peaks;
}

/** The highest lag of each piece that is on a line. */
std::vector<Lag> on_line(const std::vector<Lag>& lags, const Line& line) {
    std::vector<Lag> found(kClockPieces);
    for (const Lag& lag : lags) {
        const bool is_on = std::fabs(lag.lag_s - line.at(lag.at_s)) < kOnLine_s;
        if (is_on && lag.height > found[lag.piece].height) {
            found[lag.piece] = lag;
        }
    }
    found.erase(
        std::remove_if(found.begin(), found.end(), [](const Lag& lag) { return lag.height == 0; }),
        found.end());
    return found;
}

double weight_of(const std::vector<Lag>& lags) {
    double sum = 0;
    for (const Lag& lag : lags) {
        sum += lag.height;
    }
    return sum;
}

/** The line of the least squares, weighted by height; its slope is kept where lags are at one time.
 */
Line fit(const std::vector<Lag>& lags, const Line& known) {
    const double weight = weight_of(lags);
    double mean_at = 0;
    double mean_lag = 0;
    for (const Lag& lag : lags) {
        mean_at += lag.height * lag.at_s / weight;
        mean_lag += lag.height * lag.lag_s / weight;
    }
    double square = 0;
    double product = 0;
    for (const Lag& lag : lags) {
        square += lag.height * (lag.at_s - mean_at) * (lag.at_s - mean_at);
        product += lag.height * (lag.at_s - mean_at) * (lag.lag_s - mean_lag);
    }
    const double slope = square > weight ? product / square : known.slope;  // over a second apart
    return {mean_lag - slope * mean_at, slope};
}

/** The line with the most weight through any two lags. */
Line best_line(const std::vector<Lag>& lags) {
    Line best;
    double most = 0;
    for (const Lag& one : lags) {
        for (const Lag& other : lags) {
            const double apart_s = other.at_s - one.at_s;
            if (other.piece <= one.piece || apart_s <= 0) {
                continue;
            }
            const double slope = (other.lag_s - one.lag_s) / apart_s;
            if (std::fabs(slope) > kMostDrift + kOnLine_s / apart_s) {
                continue;
            }
            const Line line{one.lag_s - slope * one.at_s, slope};
            const double weight = weight_of(on_line(lags, line));
            if (weight > most) {
                most = weight;
                best = line;
            }
        }
    }
    for (int round = 0; round < 3 && most > 0; ++round) {
        const std::vector<Lag> near = on_line(lags, best);
        best = near.empty() ? best : fit(near, best);
    }
    return best;
}

/** A piece read at another speed: by straight lines, which is near enough at a low rate. */
std::vector<double> at_speed(const std::vector<double>& samples, double drift) {
    std::vector<double> result(samples.size());
    const double middle = static_cast<double>(samples.size()) / 2;
    for (std::size_t i = 0; i < result.size(); ++i) {
        const double place = static_cast<double>(i) + (static_cast<double>(i) - middle) * drift;
        if (place < 0 || place + 1 >= static_cast<double>(samples.size())) {
            continue;
        }
        const auto at = static_cast<std::size_t>(place);
        const double way = place - static_cast<double>(at);
        result[i] = samples[at] + (samples[at + 1] - samples[at]) * way;
    }
    return result;
}

/** Drift smears the correlation of a long piece, so that some are tried: 0 first. */
std::vector<double> drifts_to_try() {
    constexpr int kSteps = 4;
    constexpr double kStep = 40e-6;
    std::vector<double> drifts = {0};
    for (int i = 1; i <= kSteps; ++i) {
        drifts.push_back(i * kStep);
        drifts.push_back(-i * kStep);
    }
    return drifts;
}

class ClockSearch {
  public:
    ClockSearch(const std::string& reference, const std::string& track, ReferencePieces& pieces)
        : reference_name_(reference), track_name_(track), pieces_(pieces) {}

    TrackClock go() {
        TrackClock clock = near(0);
        if (clock.certainty == 0) {
            const std::optional<Line> far = far_line();
            clock = far ? near_far(*far) : clock;
        }
        return clock;
    }

  private:
    TrackClock near_far(const Line& line) const {
        const TrackClock clock = at_drift(line.offset_s, line.slope);
        return clock.certainty > 0 ? at_drift(line.offset_s, clock.drift_ppm * 1e-6) : clock;
    }

    /** Around an offset that is known to a second. */
    TrackClock near(double around_s) const {
        TrackClock best;
        double tried = 0;
        for (const double drift : drifts_to_try()) {
            const TrackClock clock = at_drift(around_s, drift);
            if (clock.certainty > best.certainty) {
                best = clock;
                tried = drift;
            }
            if (best.certainty > kSure) {
                break;
            }
        }
        const bool is_smeared = std::fabs(best.drift_ppm - tried * 1e6) > kSmearing_ppm;
        return best.certainty > 0 && is_smeared ? at_drift(around_s, best.drift_ppm * 1e-6) : best;
    }

    TrackClock at_drift(double around_s, double drift) const {
        const Fft& fft = pieces_.fft;
        PieceReader reference(reference_name_, kNearRate_hz);
        PieceReader track(track_name_, kNearRate_hz);
        if (reference.rate_hz() != track.rate_hz()) {
            return {};
        }
        const double piece_s = kNearSize / reference.rate_hz();
        // Only where both recorded.
        const double first_s = std::max(0.0, -around_s);
        const double last_s = std::min(reference.seconds(), track.seconds() - around_s) - piece_s;
        std::vector<Lag> lags;
        const auto most = static_cast<long long>(kNear_s * reference.rate_hz());
        for (std::size_t i = 0; i < kClockPieces; ++i) {
            const std::size_t piece = i * 5 % kClockPieces;  // spread over the whole from the start
            if (i == kNearFirst && lags.empty()) {
                return {};
            }
            const double from_s = first_s + std::max(0.0, last_s - first_s) *
                                                (static_cast<double>(piece) + 0.5) / kClockPieces;
            // Inside the piece the track runs faster by the drift.
            const std::vector<float> heights = correlation(
                phases_of(at_speed(track.read(from_s + around_s, kNearSize), drift), fft),
                reference_piece(reference, from_s), fft);
            for (Lag lag : peaks_of(heights, reference.rate_hz(), most)) {
                lag.at_s = from_s + piece_s / 2;
                lag.lag_s += around_s;
                lag.piece = piece;
                lags.push_back(lag);
            }
        }
        return clock_of(lags);
    }

    /** Read once for all tracks that begin near each other. */
    const Phases& reference_piece(PieceReader& reference, double from_s) const {
        const long long place = std::llround(from_s * reference.rate_hz());
        if (pieces_.phases.size() > 2 * kClockPieces) {
            pieces_.phases.clear();
        }
        const auto [at, is_new] = pieces_.phases.try_emplace(place);
        if (is_new) {
            at->second = phases_of(reference.read(from_s, kNearSize), pieces_.fft);
        }
        return at->second;
    }

    static TrackClock clock_of(const std::vector<Lag>& lags) {
        const Line line = best_line(lags);
        std::vector<bool> agrees(kClockPieces);
        // The lines of both directions, and of other voices between them, are parallel.
        double first_s = 0;
        double last_s = 0;
        for (const Lag& lag : lags) {
            const double off_s = lag.lag_s - line.at(lag.at_s);
            if (std::fabs(off_s) > kRoom_s) {
                continue;
            }
            const Line parallel{line.offset_s + off_s, line.slope};
            const std::vector<Lag> near = on_line(lags, parallel);
            if (near.size() < kLeastAgreeing) {
                continue;
            }
            agrees[lag.piece] = true;
            first_s = std::min(first_s, off_s);
            last_s = std::max(last_s, off_s);
        }
        const auto count = std::count(agrees.begin(), agrees.end(), true);
        if (count < static_cast<std::ptrdiff_t>(kLeastAgreeing)) {
            return {};
        }
        return {line.offset_s + (first_s + last_s) / 2, line.slope * 1e6,
                static_cast<double>(count) / kClockPieces};
    }

    /** The offset to a second or so and the drift to some ppm, where some pieces agree on them. */
    std::optional<Line> far_line() const {
        const Fft fft(kFarSize);
        PieceReader reference(reference_name_, kFarRate_hz);
        PieceReader track(track_name_, kFarRate_hz);
        const double rate_hz = reference.rate_hz();
        if (rate_hz != track.rate_hz()) {
            return std::nullopt;
        }
        const auto piece_size = static_cast<std::size_t>(kFarPiece_s * rate_hz);
        const auto lags = static_cast<std::ptrdiff_t>(2 * kFar_s * rate_hz);
        const double room_s = std::max(0.0, reference.seconds() - kFarPiece_s);
        std::vector<Lag> found;
        for (std::size_t i = 0; i < kFarPieces; ++i) {
            const std::size_t piece = i * 5 % kClockPieces;
            const double from_s = room_s * (static_cast<double>(piece) + 0.5) / kClockPieces;
            const Phases wide = phases_of(track.read(from_s - kFar_s, kFarSize - 1), fft);
            const std::vector<double> narrow = reference.read(from_s, piece_size);
            Lag best{from_s, 0, 0, piece};
            double drift_of_best = 0;
            for (const double drift : drifts_to_try()) {
                const std::vector<float> heights =
                    correlation(wide, phases_of(at_speed(narrow, -drift), fft), fft);
                const auto highest = std::max_element(heights.begin(), heights.begin() + lags);
                if (static_cast<double>(*highest) > best.height) {
                    best.height = static_cast<double>(*highest);
                    best.lag_s = static_cast<double>(highest - heights.begin()) / rate_hz - kFar_s;
                    drift_of_best = drift;
                }
            }
            if (best.height < kLeastHeight) {
                continue;
            }
            found.push_back(best);
            const auto agreeing = std::count_if(found.begin(), found.end(), [&](const Lag& other) {
                return std::fabs(other.lag_s - best.lag_s) <
                       kRoom_s + kMostDrift * std::fabs(other.at_s - from_s);
            });
            if (agreeing >= static_cast<std::ptrdiff_t>(kFarAgreeing)) {
                return Line{best.lag_s, drift_of_best};
            }
        }
        return std::nullopt;
    }

    std::string reference_name_;
    std::string track_name_;
    ReferencePieces& pieces_;
};

}  // namespace

ClockFinder::ClockFinder(std::string reference)
    : reference_(std::move(reference)), pieces_(std::make_unique<ReferencePieces>()) {}

ClockFinder::~ClockFinder() = default;

TrackClock ClockFinder::find(const std::string& track) {
    return ClockSearch(reference_, track, *pieces_).go();
}

bool differs(const TrackClock& clock, double seconds) {
    return clock.certainty > 0 && (std::fabs(clock.offset_s) > kNotSound_s ||
                                   std::fabs(clock.drift_ppm) * 1e-6 * seconds > kLeastDrift_s);
}

}  // namespace quorvane
