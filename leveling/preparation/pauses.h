#pragma once

#include <vector>

#include "leveling/preparation/bin_levels.h"

namespace quorvane {

/** From `begin` to before `end`, in bins or frames. */
struct Stretch {
    long long begin = 0;
    long long end = 0;

    long long length() const { return end - begin; }
};

/**
 * The bins that may hold speech. Syllables follow each other 2 to 8 times a second (T.
 * Houtgast and H. J. M. Steeneken, "The modulation transfer function in room acoustics", Acustica
 * 28 (1973)), so that the level of speech rises and falls by many dB within each second, and the
 * level of room tone, hum and hiss does not: a bin is speech where, within half a second of it, the
 * 90th percentile of the levels is 6 dB and more above the 20th, or where the gaps between words
 * are 8 dB under the median. Unlike a threshold this keeps a whisper.
 *
 * levels_db: of bins of 50 ms.
 */
std::vector<bool> find_speech(const std::vector<float>& levels_db);

/**
 * The pauses of three seconds and more that have to be kept from the engine, which would take them
 * for quiet speech: stretches of bins without speech that are 6 dB and more under the speech beside
 * them, or 14 dB where they move like a voice. Half a second at each end beside speech is left out
 * of them.
 */
std::vector<Stretch> find_pauses(const BinLevels& levels, const std::vector<bool>& speech);

/**
 * The mean level of the speech in a range of bins, dB: of the power of bins with speech, without
 * those 10 dB under the mean of all of them (the relative gate of ITU-R BS.1770). kSilence_db where
 * there is none.
 */
double speech_level(const std::vector<float>& levels_db,
                    const std::vector<bool>& speech,
                    Stretch range);

/**
 * Whether levels change from bin to bin by more than those of background do: room tone, hum and
 * hiss by up to 1 dB on average, a voice by 3 dB, and by 2 dB in a reverberant room that flattens
 * it until find_speech misses it. At least two bins.
 */
bool moves_like_a_voice(const std::vector<float>& levels_db, Stretch range);

/** The values of the bins that are in no pause. */
std::vector<float> without_pauses(const std::vector<float>& levels_db,
                                  const std::vector<Stretch>& pauses);

/** The bins that speech_level counts. */
std::vector<bool> loud_speech(const std::vector<float>& levels_db,
                              const std::vector<bool>& speech,
                              Stretch range);

}  // namespace quorvane
