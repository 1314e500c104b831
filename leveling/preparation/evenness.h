#pragma once

#include <vector>

#include "leveling/facts/run_facts.h"
#include "leveling/preparation/phrases.h"
#include "leveling/preparation/timeline.h"

namespace quorvane {

/** The gains that leveling gave to speech, in dB, from the levels before and after. */
class SpeechGains {
  public:
    /**
     * before: of the recording's bins; after: of the copy's, which lack the pauses. speech: of the
     * recording's bins.
     */
    SpeechGains(const std::vector<float>& before_db,
                const std::vector<float>& after_db,
                const std::vector<bool>& speech,
                const std::vector<Stretch>& pauses);

    /** The mean over all loud bins with speech. */
    double mean() const { return mean_; }

    /** The smaller gain of the speech within three seconds before a pause and behind it. */
    double beside(const Stretch& pause) const;

  private:
    double near_by(long long from, long long step) const;

    const std::vector<float>& before_db_;
    std::vector<float> gains_;  // of bins; NaN is ignored
    double mean_ = 0;
};

/**
 * The gain of each pause, linear. A pause gets no more gain than the speech on either side of it,
 * and no more than speech gets on average, so that it never comes up against the voices; and no
 * peak of it (linear, one for each bin) passes the ceiling.
 */
std::vector<double> pause_gains(const SpeechGains& gains,
                                const std::vector<float>& peaks,
                                const std::vector<Stretch>& pauses,
                                double ceiling_db);

/** Four seconds, over which the levels of a recording are compared, in bins. */
constexpr long long kStretch = 80;

/**
 * How uneven a recording is: the standard deviation, dB, of the levels of its stretches of so many
 * bins, each without what is 10 dB under its mean, pauses left out. 0 where there are fewer than
 * two.
 */
double unevenness(const std::vector<float>& levels_db, long long stretch = kStretch);

/**
 * Whether a recording is as even as one gain for each phrase leaves it. Levels of its bins before
 * and behind these gains, dB, pauses left out. Short recordings are compared second by second, so
 * that a loud second and a quiet one are not taken for even because nothing is there to compare
 * them with.
 */
bool is_even(const std::vector<float>& before_db,
             const std::vector<float>& phrased_db,
             const Phrases& phrases);

/**
 * How far what fills the gaps, the quietest tenth of the bins outside of pauses, is under the
 * quietest phrase, dB.
 */
double background_under(const Phrases& phrases,
                        const std::vector<float>& levels_db,
                        const std::vector<Stretch>& pauses);

/**
 * The report of a gain for each phrase: passages and a curve of at most 1,200 points,
 * both relative to the mean gain of the words.
 */
quorvane::Leveling leveling_of_phrases(const Phrases& phrases, const std::vector<float>& curve_db);

/** Moves times and the curve of what was found in the copy to the recording's time. */
void move_to_recording(quorvane::Leveling& leveling, const Timeline& timeline, int sample_rate_hz);

}  // namespace quorvane
