#include "Common/files/whole_file.h"
#include "Common/platform.h"

/*
 * What the engine does in a program that supplies no functions of its own: a library that holds the
 * engine loads without them. A program's definitions take their place.
 */

__attribute__((weak)) char* copyTemporaryDirectory(void) {
    return nullptr;
}

/** Fails the run, as any std::exception does, when the file cannot be moved. */
__attribute__((weak)) void moveFinalFile(const char* finalPath, const char* outputPath) {
    move_whole(finalPath, outputPath);
}
