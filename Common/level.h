#ifndef QUORVANE_COMMON_LEVEL_H
#define QUORVANE_COMMON_LEVEL_H

/*
 * The leveling engine's public interface, for C and C++.
 *
 * The engine holds process-wide state: one run at a time in a process, on any thread.
 */

#ifdef __cplusplus
extern "C" {
#endif

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
 *      copy of the input) is at OUT, or was handed to moveFinalFile;
 *   1  the run failed, the reason has been written to the standard output or error stream;
 *   3  the run was cancelled.
 * A C++ exception that is not a std::exception passes through to the caller.
 */
int levelMain(
    int argc, char** argv, const char* reserved, LevelProgress progress, void* callbackContext);

/*
 * Asks the running and every later levelMain of this process to end with result 3, until
 * levelClearCancel is called. Both may be called from a signal handler.
 */
void levelRequestCancel(void);
void levelClearCancel(void);

/* With keep other than 0, later runs leave every intermediate file where it is, for debugging. */
void levelKeepIntermediates(int keep);

/*
 * Two hooks that each program supplies.
 *
 * copyTemporaryDirectory returns the directory of the intermediate files as a path that begins and
 * ends with "/", in memory that the engine gives back with free(); a null pointer fails the run.
 *
 * moveFinalFile moves the finished file to the output path, replacing what is there. It reports its
 * own errors: the engine learns nothing of them.
 */
char* copyTemporaryDirectory(void);
void moveFinalFile(const char* finalPath, const char* outputPath);

#ifdef __cplusplus
}
#endif

#endif
