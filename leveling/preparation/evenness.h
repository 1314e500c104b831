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
    std::vector<float> gains_;  // of bins; what is no number counts for nothing
    double mean_ = 0;
};

/**
 * How uneven a recording is: the standard deviation, dB, of the levels of its stretches of so
 * many bins, each without what is 10 dB under its mean, pauses left out. 0 where there are fewer
 * than two.
 */
double unevenness(const std::vector<float>& levels_db, long long stretch);

/**
 * How far what fills the gaps, the quietest tenth of the bins outside of pauses, is under the
 * quietest phrase, dB.
 */
double background_under(const Phrases& phrases,
                        const std::vector<float>& levels_db,
                        const std::vector<Stretch>& pauses);

/**
 * What the results tell of a gain for each phrase: passages and a curve of at most 1,200 points,
 * both relative to the mean gain of the words.
 */
quorvane::Leveling leveling_of_phrases(const Phrases& phrases, const std::vector<float>& curve_db);

/** Moves times and the curve of what was found in the copy to the recording's time. */
void move_to_recording(quorvane::Leveling& leveling, const Timeline& timeline, int sample_rate_hz);

}  // namespace quorvane
