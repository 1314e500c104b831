/*
 * Levels a raw recording: 32-bit floats of one channel at 48 kHz on the standard input, the same on
 * the standard output.
 *
 *     ffmpeg -i talk.mp4 -f f32le -ac 1 -ar 48000 - | ./level podcast > leveled.f32
 *
 * cc -std=c99 level.c $(pkg-config --cflags --libs quorvane) -o level
 */
#include <quorvane/quorvane.h>
#include <stdio.h>
#include <stdlib.h>

enum { kRate = 48000, kBlock = 1 << 16 };

/* Reads all samples; null without memory. */
static float* read_all(size_t* count) {
    float* samples = NULL;
    size_t got = 0;
    *count = 0;
    do {
        float* more = realloc(samples, (*count + kBlock) * sizeof *samples);
        if (more == NULL) {
            free(samples);
            return NULL;
        }
        samples = more;
        got = fread(samples + *count, sizeof *samples, kBlock, stdin);
        *count += got;
    } while (got > 0);
    return samples;
}

static int level(quorvane_leveler* leveler, const char* target, float* samples, size_t count) {
    quorvane_options options;
    quorvane_audio audio = {0};
    quorvane_buffer result = {0};
    int code;

    quorvane_options_init(&options, sizeof options);
    options.target = target;
    code = quorvane_configure(leveler, &options);
    if (code != QUORVANE_OK) {
        return code;
    }
    audio.size = sizeof audio;
    audio.type = QUORVANE_FLOAT32;
    audio.sample_rate_hz = kRate;
    audio.channels = 1;
    audio.frames = count;
    audio.samples = samples;
    result.size = sizeof result;
    result.samples = samples;
    return quorvane_level(leveler, &audio, &result);
}

int main(int argc, char** argv) {
    size_t count = 0;
    float* samples = read_all(&count);
    quorvane_leveler* leveler = quorvane_new();
    int status = 1;

    if (samples == NULL || leveler == NULL) {
        fputs("level: not enough memory\n", stderr);
    } else if (level(leveler, argc > 1 ? argv[1] : NULL, samples, count) != QUORVANE_OK) {
        fprintf(stderr, "level: %s\n", quorvane_last_error(leveler));
    } else {
        fprintf(stderr, "%s\n", quorvane_verdict(leveler));
        status = fwrite(samples, sizeof *samples, count, stdout) == count ? 0 : 1;
    }
    quorvane_free(leveler);
    free(samples);
    return status;
}
