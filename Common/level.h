#ifndef QUORVANE_COMMON_LEVEL_H
#define QUORVANE_COMMON_LEVEL_H

/*
 * The leveling engine's public interface, for C and C++.
 *
 * levelMain runs a command line. A program supplies the two functions of platform.h, calls it, and
 * asks levelOutcome for the result. levelRunNew makes a run as an object, with settings, callbacks,
 * temporary directory, cancellation and outcome of its own; it needs no function of the program.
 *
 * A run works on the thread that calls it. Any number of threads can each have a run at a time, as
 * long as no two runs share a temporary directory or an output. Functions that set something for
 * later runs of the process can be called on any thread; a run takes a copy as it begins.
 */

#include "Common/outcome.h"
#include "Common/platform.h"

#ifdef __cplusplus
extern "C" {
#endif

/* NOLINTBEGIN(modernize-use-using): C reads this, too. */

/*
 * Progress of a run: the context given to levelMain and the fraction done, 0.0 to 1.0 in whole
 * percents. Called on the thread that runs levelMain. The result is ignored.
 */
typedef int (*LevelProgress)(void* context, float fraction);

/*
 * Levels one audio file. argv is a command line, its first element the program's name:
 *
 *     "", "--input-file", IN, "--output-file", OUT [, tuning options]
 *
 * reserved is not read. progress may be null: progress is then shown on the standard output.
 *
 * Returns
 *   0  the leveled file (or, for an input too short, constant or refused by the loud-peak step, a
 *      copy of the input) is at OUT, or was handed to moveFinalFile. Both may be worth nothing: a
 *      damaged input is leveled as far as it can be read. levelOutcome reports that;
 *   1  the run failed, the reason has been written to the standard output or error stream;
 *   3  the run was cancelled.
 * A C++ exception that is not a std::exception passes through to the caller.
 */
int levelMain(
    int argc, char** argv, const char* reserved, LevelProgress progress, void* callbackContext);

/*
 * Asks the running and every later levelMain of this process to end with result 3, until
 * levelClearCancel is called, which also clears gCancelled. Both may be called from any thread and
 * from a signal handler.
 */
void levelRequestCancel(void);
void levelClearCancel(void);

/*
 * For a run of its own: asks is called often, on the thread that runs levelMain. When it returns
 * non-zero the run ends with result 3, and later ones are not concerned. A null function ends this.
 */
typedef int (*LevelAsksToCancel)(void* context);
void levelAskToCancel(LevelAsksToCancel asks, void* context);

/*
 * Removes what the last levelMain of this process to end has left of its intermediate files: a
 * failed or cancelled one leaves what it had written, to help find the fault. To be called between
 * runs.
 */
void levelDiscardIntermediates(void);

/* With keep other than 0, later runs leave every intermediate file where it is, for debugging. */
void levelKeepIntermediates(int keep);

/*
 * With hide other than 0, later runs that need not keep their intermediate files give those that
 * hold audio no name: each is unlinked as soon as it is made. Such a run is faster and leaves less
 * behind, whatever becomes of it.
 */
void levelHideIntermediates(int hide);

/*
 * Where a run that hides its intermediate files writes the finished audio, if that is plain PCM or
 * floats. The last step calls open, which returns a descriptor of an empty file, open for reading
 * and writing and owned by the caller, or -1 to use a temporary file as usual. With a descriptor no
 * file exists at the path that moveFinalFile gets. WAV and AIFF may begin at the descriptor's
 * position; the caller fills the bytes before it. Messages call the file by
 * name, or "the output" with a null name. A null function removes the setting.
 */
typedef int (*LevelOpenFinal)(void* context);
void levelSetFinalFile(LevelOpenFinal open, void* context, const char* name);

/*
 * How later runs copy an input that cannot be leveled to the output: copy is called in place of the
 * engine's own copy, when levelOutcome has what came of the run. It returns 0, or the run fails. A
 * null function ends this.
 */
typedef int (*LevelCopy)(void* context, const char* input, const char* output);
void levelSetCopy(LevelCopy copy, void* context);

/*
 * With lower other than 0, later runs deliver no level that ran away: where the peaks leave the
 * target level out of reach, or a sample would pass full scale, the last step takes 0.5 dB off its
 * target until both fit. levelFindings tells by how much.
 */
void levelLowerTarget(int lower);

/*
 * With end other than 0, a rise of the gain curve that is nothing but rounding ends at once, where
 * it leads. Otherwise such a ramp of height 0 lasts its two seconds like any other, and a real rise
 * that follows within them has to wait.
 */
void levelEndFlatRamps(int end);

/*
 * The outcome of the running or last run on this thread; its kind is kLevelNotRun before the first.
 * Ask afterwards or in a callback of the run. See outcome.h for who owns what and for how long.
 */
const LevelOutcome* levelOutcome(void);

/*
 * With collect other than 0, later runs keep what their steps find for levelFindings, which returns
 * a null pointer otherwise. It costs memory for the gain curve: 8 bytes per 50 ms.
 */
void levelCollectFindings(int collect);
const LevelFindings* levelFindings(void);

typedef enum LevelWords {
    kLevelWordsOutput, /* would stand on the standard output */
    kLevelWordsError,  /* on the standard error stream */
    kLevelWordsCause   /* on one of them; levelOutcome will tell the same as the first cause */
} LevelWords;

/*
 * Later words of the engine go to messages instead of the standard streams, as they would stand
 * there, line ends included. A null pointer gives them back to the streams. Called on the thread
 * that runs levelMain.
 */
typedef void (*LevelMessage)(void* context, LevelWords kind, const char* text);
void levelSetMessages(LevelMessage messages, void* context);

/*
 * A run as an object. Set it up, call levelRunFile on any thread, then read the outcome. An object
 * is for one thread at a time, except for levelRunCancel and levelRunClearCancel, and can be used
 * again for another file.
 *
 * A new run has the yes or no settings of the process (levelKeepIntermediates, levelLowerTarget and
 * so on) at that moment, and none of its callbacks; what is set here replaces them. It writes
 * nothing to the standard streams. A broken assertion of the engine fails the run and does not
 * abort the process.
 *
 * levelRunNew returns a null pointer without memory. A null run can be freed.
 */
typedef struct LevelRun LevelRun;
LevelRun* levelRunNew(void);
void levelRunFree(LevelRun* run);

/*
 * Adds a word of levelMain's command line, such as "--bit-depth=24". Words are checked when the run
 * begins. This and the next return 0, or 1 without memory.
 */
int levelRunAddOption(LevelRun* run, const char* word);

/* An existing folder, as a path that begins and ends with "/", that no other run uses meanwhile. */
int levelRunSetTemporaryDirectory(LevelRun* run, const char* path);

/* Null pointers: no progress is shown, and messages are dropped. */
void levelRunSetProgress(LevelRun* run, LevelProgress progress, void* context);
void levelRunSetMessages(LevelRun* run, LevelMessage messages, void* context);

/* As levelSetFinalFile and levelSetCopy. */
void levelRunSetFinalFile(LevelRun* run, LevelOpenFinal open, void* context, const char* name);
void levelRunSetCopy(LevelRun* run, LevelCopy copy, void* context);

/*
 * In place of moveFinalFile: puts the finished file at the output path and returns 0, or the run
 * fails. Nothing is at finalPath when the callback of levelRunSetFinalFile has opened a file.
 */
typedef int (*LevelDeliver)(void* context, const char* finalPath, const char* outputPath);
void levelRunSetDelivery(LevelRun* run, LevelDeliver deliver, void* context);

typedef enum LevelSwitch {
    kLevelKeepIntermediates, /* as the functions of these names; 0: off */
    kLevelHideIntermediates,
    kLevelLowerTarget,
    kLevelEndFlatRamps,
    kLevelCollectFindings,
    kLevelUseHelperThread /* read ahead and write behind on a second thread; no bit depends on it */
} LevelSwitch;

void levelRunSwitch(LevelRun* run, LevelSwitch which, int on);

/*
 * Levels a file on this thread. Results are those of levelMain. Called from a callback of another
 * run on this thread it returns 1 and levels nothing; a C++ exception that is not a std::exception
 * passes through from the callback that threw it.
 */
int levelRunFile(LevelRun* run, const char* input, const char* output);

/*
 * Ends this run and its later files with result 3, until it is cleared. For any thread and for
 * signal handlers. levelRunAskToCancel is as levelAskToCancel; levelRequestCancel ends all runs.
 */
void levelRunCancel(LevelRun* run);
void levelRunClearCancel(LevelRun* run);
void levelRunAskToCancel(LevelRun* run, LevelAsksToCancel asks, void* context);

/* Of the last levelRunFile, until the next one or levelRunFree. For any thread once it has ended.
 */
const LevelOutcome* levelRunOutcome(const LevelRun* run);
const LevelFindings* levelRunFindings(LevelRun* run);
void levelRunDiscardIntermediates(LevelRun* run);

/* NOLINTEND(modernize-use-using) */

#ifdef __cplusplus
}
#endif

#endif
