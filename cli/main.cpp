#include <cstring>

#include "cli/batch/batch_command.h"
#include "cli/engine/engine_command.h"
#include "cli/worker/job.h"
#include "cli/worker/worker.h"

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

}  // namespace

int main(int argc, char** argv) {
    if (argc == 2 && std::strcmp(argv[1], cli::kWorkerWord) == 0) {
        return cli::worker_main();
    }
    return names_engine_input(argc, argv) ? run_engine_command(argc, argv)
                                          : cli::batch_main(argc, argv);
}
