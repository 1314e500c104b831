#include "cli/engine_command.h"

int main(int argc, char** argv) {
    return run_engine_command(argc, argv);
}
