#ifndef QUORVANE_COMMON_OUTCOME_H
#define QUORVANE_COMMON_OUTCOME_H

/*
 * What came of a run, and what its steps found: plain C structures that the engine fills.
 *
 * Everything belongs to the engine: the structures, their texts and their arrays stay as they are
 * until the next run on this thread begins or the thread ends; those of a run object until its next
 * file begins or it is freed. The caller frees none of them. Texts are never null and hold the
 * bytes of file names as they were given, which need not be UTF-8.
 */

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

/* NOLINTBEGIN(modernize-use-using): C reads this, too. */

typedef enum LevelOutcomeKind {
    kLevelNotRun,           /* no run yet, or the command line asked for the help or the version */
    kLevelLeveled,          /* the finished file was handed to moveFinalFile */
    kLevelCopiedTooShort,   /* copied: shorter than 0.05 s */
    kLevelCopiedConstant,   /* copied: every sample of a channel has the same value */
    kLevelCopiedQuiet,      /* copied: nothing is above the noise floor of the loud-peak step */
    kLevelCopiedStepFailed, /* copied: the loud-peak step failed in any other way */
    kLevelFailed,
    kLevelWrongUsage, /* the command line was refused */
    kLevelCancelled
} LevelOutcomeKind;

/* Why a result may be bad though the run returned 0. */
typedef enum LevelDefect {
    kLevelNoDefect,
    kLevelFramesMissing, /* a sound file gave fewer frames than its header promises */
    kLevelNotFinite,     /* samples that are infinite or not numbers were copied or passed on */
    kLevelOtherDefect    /* defect_reason says what */
} LevelDefect;

/* Which of the engine's files the cause is about. */
typedef enum LevelFile {
    kLevelNoFile,        /* none of them */
    kLevelTemporaryFile, /* one that passes from step to step */
    kLevelFinalFile      /* the file that levelSetFinalFile gave */
} LevelFile;

typedef struct LevelOutcome {
    LevelOutcomeKind kind;
    int failed_step;       /* kLevelFailed, kLevelCopiedStepFailed: 1 to 10, 0 for none of them */
    int system_failure;    /* likewise: 1 when a file or memory failed, not what was given */
    LevelFile failed_file; /* likewise: what could not be read or written */
    const char* cause;     /* failed or copied: a line that names the input and the first cause */
    const char* reason;    /* the same without the input's name, to be put behind it */

    /*
     * The first thing that a step went on after. The engine delivers or copies all the same: a
     * caller that does not want such a result refuses it.
     */
    LevelDefect defect;
    const char* defect_reason; /* one line, to be put behind the input's name */
    int defect_by_system;      /* 1: the system failed; the same file may be good another time */
    /*
     * Of a file that gave fewer frames than its header says, else -1. An MPEG stream's header may
     * have an estimate only, and one without a length has the largest number: without an error of
     * the library such a file has no defect.
     */
    long long frames_promised;
    long long frames_read;
    const char* library_text; /* kLevelFramesMissing: the sound library's error text, or "" */
} LevelOutcome;

/* A stretch of steady loudness, as the segmentation found it. */
typedef struct LevelPassage {
    long long begin_frame; /* on the walls of the bins */
    long long end_frame;   /* not in it */
    double level_db;       /* its gated level; kLevelSilence_db: nothing is above the threshold */
    double gain;           /* linear, before smoothing */
} LevelPassage;

#define kLevelSilence_db (-200.0)

/*
 * What the steps found. A number that the run did not get to is not a number (NaN), an array has
 * the count 0. Levels are dB relative to full scale.
 */
typedef struct LevelFindings {
    int sample_rate_hz;
    int channels;
    long long frames;

    double filtered_level_db;      /* step 1: the level without rumble */
    double gate_threshold_db;      /* step 2 */
    double loud_peak_level_db;     /* step 3: of the bins above its noise floor, */
    double loud_peak_threshold_db; /*   and above which a bin is lowered */
    double loud_level_db;          /* step 4: likewise */
    double loud_threshold_db;
    double segment_threshold_db; /* step 6: quieter bins take no part */

    size_t passage_count; /* steps 6 and 7, in the order of time, without a gap */
    const LevelPassage* passages;

    double bin_s; /* step 8: length of the stretch that a value of the gain curve is for */
    size_t gain_count;
    const double* gains; /* linear */

    double normalize_level_db; /* step 10: the level that it met, */
    double target_level_db;    /*   the one that it had to reach, */
    double fit_error_db;       /*   what it reached less that, */
    double fit_gain;           /*   with this gain, linear; */
    double target_lowered_db;  /*   what levelLowerTarget had it take off the target; and */
    long long held_samples;    /*   the samples that were held at full scale; -1: not known */

    long long output_frames; /* the finished audio as its file gives it back, full scale 1.0; */
    double output_peak;      /*   the largest absolute sample */
    double output_rms;       /*   over all samples; frames -1: that takes decoding the file */
} LevelFindings;

/* NOLINTEND(modernize-use-using) */

#ifdef __cplusplus
}
#endif

#endif
