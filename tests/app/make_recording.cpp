// Writes seconds of made speech to a file: make_recording FILE SECONDS

#include <string>

#include "tests/support/signals.h"

int main(int, char** argv) {
    write_sound(argv[1], signals::speech(std::stod(argv[2]), 16000), kWav16);
}
