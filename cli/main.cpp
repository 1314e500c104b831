#include <fcntl.h>
#include <unistd.h>

#include <cstring>

#ifdef __GLIBC__
#include <malloc.h>
#endif

#include "cli/commands/batch_command.h"
#include "cli/commands/engine_command.h"
#include "cli/commands/merge_command.h"
#include "leveling/worker/job.h"
#include "leveling/worker/worker.h"

namespace {

/** --input-file makes it the engine's own command line, in each form that its parser takes. */
bool names_engine_input(int argc, char** argv) {
    constexpr const char* kOption = "--input-file";
    for (int i = 1; i < argc && std::strcmp(argv[i], "--") != 0; ++i) {
        const std::size_t length = std::strlen(kOption);
        if (std::strncmp(argv[i], kOption, length) == 0 &&
            (argv[i][length] == '\0' || argv[i][length] == '=')) {
            return true;
        }
    }
    return false;
}

/**
 * A standard stream that our starter closed would leave its number to the next file that is opened,
 * and the words meant for the stream would land in that file. A closed standard output stays
 * without a way to write to it, so that a result which is sent there fails.
 */
void keep_standard_numbers_taken() {
    for (const int number : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (fcntl(number, F_GETFD) < 0) {
            // Takes the lowest free number.
            (void)!open("/dev/null", number == STDOUT_FILENO ? O_RDONLY : O_RDWR);
        }
    }
}

/**
 * An array over all bins goes back to the system when it is freed. Left to itself, the GNU library
 * keeps arrays of a size in its heap as soon as it has freed one, and the heap of ten hours is half
 * as large again as what is in use. The blocks of the passes, smaller and many, stay in the heap.
 */
void return_large_arrays() {
#ifdef __GLIBC__
    constexpr int kLargeArray = 1 << 20;
    mallopt(M_MMAP_THRESHOLD, kLargeArray);
    mallopt(M_TRIM_THRESHOLD, 2 * kLargeArray);
#endif
}

}  // namespace

int main(int argc, char** argv) {
    keep_standard_numbers_taken();
    return_large_arrays();
    if (argc == 2 && std::strcmp(argv[1], quorvane::kWorkerWord) == 0) {
        return quorvane::worker_main();
    }
    if (argc > 1 && std::strcmp(argv[1], quorvane::kMergeWord) == 0) {
        return quorvane::merge_main(argc, argv);
    }
    return names_engine_input(argc, argv) ? run_engine_command(argc, argv)
                                          : quorvane::batch_main(argc, argv);
}
