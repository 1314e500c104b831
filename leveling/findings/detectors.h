#pragma once

#include <vector>

#include "leveling/facts/finding.h"
#include "leveling/findings/speech_view.h"

/*
 * One function for each fault. All measure, and none judges: limits stand in one table
 * (leveling/findings/findings.cpp). What cannot be measured has the badness kNotMeasured.
 */

namespace quorvane {

constexpr double kNotMeasured = -1000;

/** What a detector found. */
struct Measured {
    double badness = kNotMeasured;  // grows as the fault does; compared with the limits
    double value = 0;               // for people
    const char* unit = "dB";
    std::vector<FindingPlace> places;
    std::string detail;
};

/** The share of samples in flat tops (leveling/findings/flat_tops.h), %. */
Measured measure_clipping(const SpeechView& view);

/** How far one side is below the other, dB: of the mean power of the recording. */
Measured measure_sides(const SpeechView& view);

/**
 * What playing both sides through one loudspeaker costs, dB: the power of (L + R) / 2 against the
 * mean of both, which is 0 dB for equal sides and 3 dB for sides without correlation. The tenths
 * whose correlation coefficient (K. Pearson, "Note on regression and inheritance in the case of two
 * parents", Proceedings of the Royal Society 58 (1895)) is under -0.5 are the places.
 */
Measured measure_phase(const SpeechView& view);

/** The mean of a channel, % of full scale; it is judged against the speech. */
Measured measure_offset(const SpeechView& view);

/**
 * The level of mains hum, dB against the speech: of the six first multiples of 50 or 60 Hz in the
 * quiet windows, where they stand 10 dB over the spectrum beside them. (W. M. Hartmann, "Signals,
 * Sound, and Sensation", 1998: hum is a harmonic series of the mains frequency.)
 */
Measured measure_hum(const SpeechView& view);

/**
 * The signal-to-noise ratio, dB: speech against the tenth percentile of all levels, as a histogram
 * of levels shows both (the measure `stnr` of the NIST Speech Quality Assurance package, 1992).
 */
Measured measure_noise(const SpeechView& view);

/**
 * Wind and rumble, dB: what lies from 8 to 40 Hz, where no voice is, against the speech. (C. M.
 * Nelke and P. Vary, "Measurement, analysis and simulation of wind noise signals for mobile
 * communication devices", IWAENC 2014: wind has most of its energy below 100 Hz.)
 */
Measured measure_rumble(const SpeechView& view);

/**
 * Music under a voice, dB against the speech: the level of the gaps between words, where the lines
 * of their spectrum stay for tenths of a second, as those of noise do not and voices have none.
 * (After G. Peeters, "A large set of audio features for sound description", IRCAM 2004: spectral
 * variation is one minus the correlation of two spectra in a row; J. Saunders, "Real-time
 * discrimination of broadcast speech/music", ICASSP 1996, judges music by the gaps of speech.)
 */
Measured measure_music(const SpeechView& view);

/**
 * The reverberation time, s: decays after words cannot be faster than the room's, so that their
 * fast end tells it. (R. Ratnam et al., "Blind estimation of reverberation time", JASA 114 (2003):
 * an order statistic of the decay rates that were found.)
 */
Measured measure_reverberation(const SpeechView& view);

/**
 * How far a second voice is below the first, dB: where the levels of passages fall into two groups
 * with nothing between them (N. Otsu, "A threshold selection method from gray-level histograms",
 * IEEE Transactions on Systems, Man, and Cybernetics 9 (1979), separates them).
 */
Measured measure_spill(const SpeechView& view);

/** All pauses of ten seconds and more together, minutes. */
Measured measure_pauses(const SpeechView& view);

/**
 * How often the sound breaks off or jumps inside speech: digital zeros between samples as loud as
 * words, and single steps that are far larger than those around them. (S. J. Godsill and P. J. W.
 * Rayner, "Digital Audio Restoration", 1998: clicks stand out of the prediction from their
 * neighbourhood.)
 */
Measured measure_breaks(const SpeechView& view);

/** At most 20 places, the longest ones, in order of time; what touches is one. */
std::vector<FindingPlace> longest_places(std::vector<FindingPlace> places);

/** Places of tenths, with no gap longer than half a second inside one. */
std::vector<FindingPlace> places_of(const SoundProfile& profile,
                                    const std::vector<std::size_t>& tenths);

}  // namespace quorvane
