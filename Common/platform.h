#ifndef QUORVANE_COMMON_PLATFORM_H
#define QUORVANE_COMMON_PLATFORM_H

/*
 * Functions that the host program provides. A run with its own temporary directory and delivery
 * (levelRunNew) calls neither. Both have weak defaults, so that a library can be loaded without
 * them: no temporary directory, and a move that fails the run when it fails.
 */

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Returns the directory of the intermediate files as a path that begins and ends with "/", in
 * memory that the engine gives back with free(); a null pointer fails the run.
 */
char* copyTemporaryDirectory(void);

/*
 * Moves the finished file to the output path, replacing what is there. It reports its own errors:
 * the engine learns nothing of them.
 */
void moveFinalFile(const char* finalPath, const char* outputPath);

#ifdef __cplusplus
}
#endif

#endif
