#ifndef QUORVANE_COMMON_PLATFORM_H
#define QUORVANE_COMMON_PLATFORM_H

/*
 * Functions that the host program provides. A run with its own temporary directory and delivery
 * (levelRunNew) calls neither. Both have weak defaults, so that a library can be loaded without
 * them: no temporary directory, and a move that fails the run when it fails. levelSetPlatform
 * replaces them while the program runs.
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

/* NOLINTBEGIN(modernize-use-using): C reads this, too. */

/*
 * The same two functions with a context, set at run time. A null function leaves that of the
 * program in use. deliver returns 0, or the run fails with result 1.
 */
typedef struct LevelPlatform {
    void* context;
    char* (*copy_temporary_directory)(void* context);
    int (*deliver)(void* context, const char* finalPath, const char* outputPath);
} LevelPlatform;

/* NOLINTEND(modernize-use-using) */

/*
 * For later calls of levelMain in this process; a copy is taken. A null pointer restores the
 * functions above. May be called on any thread.
 */
void levelSetPlatform(const LevelPlatform* platform);

#ifdef __cplusplus
}
#endif

#endif
