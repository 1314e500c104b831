#include "leveling/publish/publish.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <limits>
#include <optional>
#include <stdexcept>
#include <utility>
#include <vector>

#include "leveling/audio/channel_places.h"
#include "leveling/audio/measure.h"
#include "leveling/audio/portable_math.h"
#include "leveling/audio/sound_file.h"
#include "leveling/facts/no_room.h"
#include "leveling/publish/level_meter.h"
#include "leveling/publish/limiter.h"
#include "leveling/publish/local_ceilings.h"
#include "leveling/publish/true_peak.h"

/*
 * Gain and limiting hang together: more gain means more limiting, and that takes loudness away
 * again. So the gain is searched for, by trials that run the limiter over the whole file but keep
 * only the level: the secant through the last two trials gives the next one. What was found is
 * written, encoded as the file has to be, and measured as anybody would measure it. A codec adds
 * peaks of its own. Where they pass the limit, the ceiling is lowered, and only there: lowered for
 * the whole file it would cost loudness, which more limiting would have to bring back. The aim is
 * corrected by what the coding adds to the level, the gain is searched for under the new ceilings,
 * since a trial is cheaper than a coding, and all of it is done again, a few times at most; the
 * best delivery counts.
 *
 * Where the target would need more limiting than is sound, the gain stays at the most that does
 * not. What the lowered ceilings take away for short moments does not count there.
 */

namespace quorvane {
namespace {

constexpr int kMostTrials = 6;  // for one ceiling
constexpr int kMostDeliveries = 10;
constexpr double kTrialAccuracy = 0.05;    // dB
constexpr double kDeliveryAccuracy = 0.1;  // dB; a tenth is what is shown
constexpr double kCeilingMargin = 0.01;    // dB below the limit, for the rounding of samples
constexpr double kLeastRise = 0.3;     // of the level, dB a dB of gain: below it the limiter rules
constexpr double kMostStep = 6;        // dB from one trial to the next
constexpr double kLeastStep = 0.02;    // dB back from a gain that is not sound
constexpr double kUnnoticed = 0.25;    // of the limit: what no codec raises above it
constexpr double kRoomAtEdge = 0.3;    // dB kept from the edges of what an audiobook may have
constexpr double kExpectedPasses = 5;  // for the progress

/** Whether a delivery is nearer to what is wanted than another: the limit of the peak comes first.
 */
struct Distance {
    double excess_db;  // of the peak above the limit
    double off_db;     // of the level, without its sign

    bool holds() const { return excess_db <= kPeakTolerance; }

    bool operator<(const Distance& other) const {
        if (holds() != other.holds()) {
            return holds();
        }
        return holds() ? off_db < other.off_db : excess_db < other.excess_db;
    }
};

/** What came out of one run of gain and limiter over the file. */
struct Trial {
    double level_db = 0;
    Reductions reductions;
};

/** A trial's gain and the level that came of it, both in dB. */
struct Point {
    double gain_db;
    double level_db;
};

bool is_too_hard(const Trial& trial) {
    return trial.reductions.share_above(kMostLimitingDb) > kMostLimitedShare;
}

class Publisher {
  public:
    Publisher(const Destination& destination,
              std::string from,
              const std::function<void(double)>& progress)
        : destination_(destination), from_(std::move(from)), progress_(progress) {}

    Published run(const std::string& to, const Encode& encode);

  private:
    Trial try_out(double gain_db, SndfileHandle* out);
    void solve();
    void solve_from(double gain, std::optional<Point> known);
    double aim() const;
    bool fits_as_it_is();
    double find_peaks(const std::string& path, const Loudness& measured);
    Trial render(const std::string& to);
    Published deliver(const std::string& to, const Encode& encode);
    Published search(const std::string& to, const Encode& encode);
    Loudness measured(const std::string& path);
    void encode_and_measure(const std::string& rendered, const Encode& encode, Published& result);
    void advance(double fraction_of_pass);
    void learn_from(const Published& result, const std::string& rendered);
    bool is_silent() const;
    bool delivered(const Published& result);

    const Destination& destination_;
    std::string from_;
    const std::function<void(double)>& progress_;
    double passes_ = 0;
    int channels_ = 0;
    Loudness before_;
    Reading coded_ = {};     // the last one
    double aim_db_ = 0;      // the level that a trial has to have
    double ceiling_db_ = 0;  // of the limiter
    double gain_db_ = 0;
    double most_gain_db_ = std::numeric_limits<double>::infinity();  // that is sound
    bool held_back_ = false;
    std::optional<LocalCeilings> ceilings_ = {};
    std::vector<double> peaks_ = {};  // of the blocks of the file that was read last, linear
    double rise_ = 1;                 // of the level with the gain, dB a dB
    double rendered_db_ = 0;          // the level of what was encoded last
    double coding_db_ = 0;            // what the codings added to it, all together
    int codings_ = 0;
    Distance miss_ = {};  // of the last delivery
};

/** Nobody knows how many passes there will be: the last percent waits for the end. */
void Publisher::advance(double fraction_of_pass) {
    progress_(std::min(0.99, (passes_ + fraction_of_pass) / kExpectedPasses));
}

Loudness Publisher::measured(const std::string& path) {
    Loudness loudness = measure(path, [this](double done) { advance(done); }).loudness;
    ++passes_;
    return loudness;
}

/** The peaks that are reported are those of the decoder that makes the higher ones. */
void Publisher::encode_and_measure(const std::string& rendered,
                                   const Encode& encode,
                                   Published& result) {
    coded_ = encode(rendered);
    result.path = coded_.path;
    result.after = coded_.path == from_ ? before_ : measured(coded_.path);
    if (!coded_.other.empty()) {
        const Loudness other = measured(coded_.other);
        result.after.true_peak_dbtp = std::max(result.after.true_peak_dbtp, other.true_peak_dbtp);
        result.after.sample_peak_dbfs =
            std::max(result.after.sample_peak_dbfs, other.sample_peak_dbfs);
    }
}

/**
 * Keeps the peaks of the file's blocks and gives that of the whole, in dB over the limit: the
 * stricter reading of two meters, ours and that of the measurement.
 */
double Publisher::find_peaks(const std::string& path, const Loudness& measured) {
    const double limit = portable_amplitude(destination_.peak_limit_db);
    peaks_ = block_peaks_of(path, limit * kUnnoticed);
    if (path == coded_.path && !coded_.other.empty()) {
        const std::vector<double> others = block_peaks_of(coded_.other, limit * kUnnoticed);
        peaks_.resize(std::max(peaks_.size(), others.size()));
        std::transform(others.begin(), others.end(), peaks_.begin(), peaks_.begin(),
                       [](double other, double ours) { return std::max(other, ours); });
    }
    const double greatest = *std::max_element(peaks_.begin(), peaks_.end());
    const double ours = rounded(20 * std::log10(greatest / limit));
    const double theirs = rounded(measured.true_peak_dbtp - destination_.peak_limit_db);
    if (theirs > ours && theirs > 0 && greatest > 0) {
        // Which block it was, only our meter knows.
        const double factor = portable_amplitude(theirs) * limit / greatest;
        for (double& peak : peaks_) {
            peak *= factor;
        }
    }
    return std::max(ours, theirs);
}

/** Runs gain and limiter over the file, and writes what comes out where there is a file for it. */
Trial Publisher::try_out(double gain_db, SndfileHandle* out) {
    SndfileHandle in = open_to_read(from_);
    LevelMeter meter(destination_.kind, in);
    TruePeakLimiter limiter(channels_, in.samplerate(), portable_amplitude(gain_db),
                            portable_amplitude(ceiling_db_), ceilings_->factors());
    std::vector<double> block(static_cast<std::size_t>(kReadFrames) *
                              static_cast<std::size_t>(channels_));
    std::vector<double> ready;
    const auto pass_on = [&] {
        meter.add(ready);
        const auto count = static_cast<sf_count_t>(ready.size());
        errno = 0;
        if (out && out->write(ready.data(), count) != count) {
            fail_write(errno, out->strError());
        }
        ready.clear();
    };
    double done = 0;
    for (sf_count_t got = 0; (got = in.readf(block.data(), kReadFrames)) > 0;) {
        limiter.process(block.data(), static_cast<std::size_t>(got), ready);
        pass_on();
        done += static_cast<double>(got);
        advance(done / static_cast<double>(in.frames()));
    }
    if (in.error()) {
        throw std::runtime_error(in.strError());
    }
    limiter.finish(ready);
    pass_on();
    ++passes_;
    return {meter.level_db(), limiter.reductions()};
}

/** The level to aim at: the target, or below it where that keeps the pauses quiet enough. */
double Publisher::aim() const {
    const double target = destination_.target(channels_);
    if (!destination_.noise_floor_db) {
        return target;
    }
    // A gain moves voice and pauses together: their distance says which level the pauses allow.
    const double quiet_enough = destination_.level_of(before_) + *destination_.noise_floor_db -
                                before_.pauses_dbfs - kRoomAtEdge;
    const double lowest = target - destination_.lower_by + kRoomAtEdge;
    return quiet_enough >= lowest ? std::min(target, quiet_enough) : target;
}

/** Finds the gain that brings the level to the aim under the ceiling, or the most that is sound. */
void Publisher::solve() {
    // Without limiting, gain and level move together: the one point that needs no trial.
    const double idle_gain = ceiling_db_ - before_.true_peak_dbtp - kDeliveryAccuracy;
    double gain = aim_db_ - destination_.level_of(before_);
    const double known_gain = std::min(idle_gain, gain);
    if (gain <= idle_gain && ceilings_->factors().empty()) {
        gain_db_ = rounded(gain);
        return;
    }
    solve_from(gain, {{known_gain, destination_.level_of(before_) + known_gain}});
}

/** The same by trials from a gain on, with the secant through that point first, if there is one. */
void Publisher::solve_from(double gain, std::optional<Point> known) {
    held_back_ = false;
    most_gain_db_ = std::numeric_limits<double>::infinity();
    for (int trials = 0; trials < kMostTrials; ++trials) {
        gain = rounded(std::min(gain, most_gain_db_));
        const Trial trial = try_out(gain, nullptr);
        // Too much of it is limited too hard: back by as much as the limiter was overdriven.
        if (is_too_hard(trial)) {
            most_gain_db_ = gain - kLeastStep -
                            (trial.reductions.exceeded_by(kMostLimitedShare) - kMostLimitingDb);
            gain = most_gain_db_;
            continue;
        }
        const double lacking = aim_db_ - trial.level_db;
        held_back_ = lacking > kTrialAccuracy && gain >= most_gain_db_;
        if (std::fabs(lacking) <= kTrialAccuracy || held_back_) {
            break;
        }
        // By how much the level rises with the gain, here: below 1 where the limiter works.
        if (known && gain != known->gain_db) {
            rise_ = std::clamp((trial.level_db - known->level_db) / (gain - known->gain_db),
                               kLeastRise, 1.0);
        }
        known = Point{gain, trial.level_db};
        gain += std::clamp(lacking / rise_, -kMostStep, kMostStep);
    }
    gain_db_ = rounded(std::min(gain, most_gain_db_));
}

bool Publisher::is_silent() const {
    return !std::isfinite(destination_.level_of(before_));
}

/** Silence has no level that a gain could change. */
bool Publisher::fits_as_it_is() {
    return is_silent() ||
           (std::fabs(destination_.level_of(before_) - aim_db_) <= kDeliveryAccuracy &&
            find_peaks(from_, before_) <= kPeakTolerance);
}

/** Whether what was written keeps the limit and has the level, as far as that can be had. */
bool Publisher::delivered(const Published& result) {
    miss_ = {find_peaks(result.path, result.after),
             std::fabs(rounded(aim() - destination_.level_of(result.after)))};
    return miss_.holds() && (miss_.off_db <= kDeliveryAccuracy || held_back_);
}

/**
 * Lowers the ceiling where the delivered peaks are above the limit, and finds the gain under it
 * that has the level behind the coding.
 */
void Publisher::learn_from(const Published& result, const std::string& rendered) {
    if (!miss_.holds()) {
        const double limit = portable_amplitude(destination_.peak_limit_db);
        ceilings_->lower(peaks_, block_peaks_of(rendered, limit * kUnnoticed));
    }
    // The coding changes the level by about the same each time.
    coding_db_ += destination_.level_of(result.after) - rendered_db_;
    ++codings_;
    aim_db_ = rounded(aim() - coding_db_ / codings_);
    solve_from(gain_db_, {});
}

Trial Publisher::render(const std::string& to) {
    const SndfileHandle in = open_to_read(from_);
    SndfileHandle out = open_to_write(to, in.format(), channels_, in.samplerate());
    copy_places(in, out);
    // A sample that rounds above full scale would wrap in integer formats.
    out.command(SFC_SET_CLIPPING, nullptr, SF_TRUE);
    return try_out(gain_db_, &out);
}

/** Renders, encodes and measures with the gain and the ceilings that were found. */
Published Publisher::deliver(const std::string& to, const Encode& encode) {
    const Trial written = render(to);
    rendered_db_ = written.level_db;
    Published result;
    encode_and_measure(to, encode, result);
    result.facts = {destination_.word,
                    gain_db_,
                    ceilings_->lowest_db(),
                    written.reductions.most_db(),
                    written.reductions.share_above(kMostLimitingDb),
                    held_back_};
    return result;
}

Published Publisher::run(const std::string& to, const Encode& encode) {
    channels_ = open_to_read(from_).channels();
    before_ = measured(from_);
    aim_db_ = aim();
    ceiling_db_ = destination_.peak_limit_db - kCeilingMargin;
    ceilings_.emplace(destination_.peak_limit_db, ceiling_db_);

    Published result;
    result.facts.destination = destination_.word;
    if (fits_as_it_is()) {
        // Nothing to change, but for a lossy format the encoder has its say.
        encode_and_measure(from_, encode, result);
        result.facts.ceiling_dbtp = ceiling_db_;
        if (is_silent() || delivered(result)) {
            return result;
        }
        rendered_db_ = destination_.level_of(before_);
        learn_from(result, from_);
        return search(to, encode);
    }
    solve();
    return search(to, encode);
}

/** Delivers until it is right, or the best of some deliveries once more. */
Published Publisher::search(const std::string& to, const Encode& encode) {
    struct Best {
        Distance miss;
        double gain_db;
        bool held_back;
        LocalCeilings ceilings;
    };

    std::optional<Best> best;
    for (int deliveries = 1;; ++deliveries) {
        Published result = deliver(to, encode);
        if (delivered(result)) {
            return result;
        }
        const bool better = !best || miss_ < best->miss;
        if (better) {
            best = Best{miss_, gain_db_, held_back_, *ceilings_};
        }
        if (deliveries == kMostDeliveries) {
            if (better) {
                return result;
            }
            break;
        }
        learn_from(result, to);
    }
    gain_db_ = best->gain_db;
    held_back_ = best->held_back;
    ceilings_ = best->ceilings;
    return deliver(to, encode);
}

}  // namespace

Published publish(const Destination& destination,
                  const std::string& from,
                  const std::string& to,
                  const Encode& encode,
                  const std::function<void(double)>& progress) {
    return Publisher(destination, from, progress).run(to, encode);
}

}  // namespace quorvane
