// make_speech FILE SECONDS: a recording for the run from outside.
#include <cstdlib>

#include "tests/support/signals.h"

int main(int argc, char** argv) {
    if (argc != 3) {
        return 2;
    }
    write_sound(argv[1], signals::speech(std::atof(argv[2]), 16000), kWav16);
    return 0;
}
