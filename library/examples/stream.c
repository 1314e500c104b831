/*
 * Levels a raw recording of unknown length in bounded memory: 16-bit stereo at 44.1 kHz on the
 * standard input, the same on the standard output. What does not fit in memory goes to the folder
 * that is given.
 *
 * cc -std=c99 stream.c $(pkg-config --cflags --libs quorvane) -o stream
 */
#include <quorvane/quorvane.h>
#include <stdint.h>
#include <stdio.h>

enum { kRate = 44100, kChannels = 2, kBlock = 4096 };

static int16_t block[kBlock * kChannels];

static int write_all(quorvane_leveler* leveler) {
    quorvane_audio audio = {0};
    int code = quorvane_begin(leveler, QUORVANE_INT16, kRate, kChannels);

    audio.size = sizeof audio;
    audio.type = QUORVANE_INT16;
    audio.sample_rate_hz = kRate;
    audio.channels = kChannels;
    audio.samples = block;
    while (code == QUORVANE_OK) {
        audio.frames = fread(block, sizeof *block * kChannels, kBlock, stdin);
        if (audio.frames == 0) {
            return quorvane_finish(leveler);
        }
        code = quorvane_write(leveler, &audio);
    }
    return code;
}

static int read_all(quorvane_leveler* leveler) {
    quorvane_buffer result = {0};
    uint64_t got = 1;
    int code = QUORVANE_OK;

    result.size = sizeof result;
    result.samples = block;
    while (code == QUORVANE_OK && got > 0) {
        code = quorvane_read(leveler, &result, kBlock, &got);
        if (fwrite(block, sizeof *block * kChannels, (size_t)got, stdout) != got) {
            return QUORVANE_IO_ERROR;
        }
    }
    return code;
}

int main(int argc, char** argv) {
    quorvane_leveler* leveler = quorvane_new();
    quorvane_options options;
    int code;

    quorvane_options_init(&options, sizeof options);
    options.memory_bytes = 16 << 20;
    options.scratch_folder = argc > 1 ? argv[1] : NULL;
    code = quorvane_configure(leveler, &options);
    if (code == QUORVANE_OK) {
        code = write_all(leveler);
    }
    if (code == QUORVANE_OK) {
        code = read_all(leveler);
    }
    if (code != QUORVANE_OK) {
        fprintf(stderr, "stream: %s: %s\n", quorvane_error_name(code),
                quorvane_last_error(leveler));
    }
    quorvane_free(leveler);
    return code == QUORVANE_OK ? 0 : 1;
}
