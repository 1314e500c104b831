#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "Common/version.h"
#include "library/border/handle.h"

/* The C functions that do something: versions and codes, handles, calls, pushed frames. */

namespace {

struct CodeText {
    const char* name;
    const char* text;
};

constexpr CodeText kCodes[] = {
    {"QUORVANE_OK", "done"},
    {"QUORVANE_BAD_ARGUMENT", "an argument is null, of a wrong size or out of range"},
    {"QUORVANE_BAD_OPTION", "an option is unknown or does not fit"},
    {"QUORVANE_BAD_AUDIO", "the audio is empty, damaged or not made of numbers"},
    {"QUORVANE_UNSUPPORTED", "the format or the number of channels is not supported"},
    {"QUORVANE_CANCELLED", "cancelled"},
    {"QUORVANE_NO_MEMORY", "not enough memory"},
    {"QUORVANE_IO_ERROR", "a file or folder cannot be read or written"},
    {"QUORVANE_WRONG_STATE", "the call is out of order"},
    {"QUORVANE_EXISTS", "the output exists already"},
    {"QUORVANE_FAILED", "the audio could not be leveled"},
    {"QUORVANE_INTERNAL", "a fault of the library"},
};

constexpr CodeText kUnknown = {"unknown", "an unknown code"};

const CodeText& text_of(int code) {
    const bool is_known = code >= 0 && code < static_cast<int>(std::size(kCodes));
    return is_known ? kCodes[code] : kUnknown;
}

// All are in memory as levels, and open at the same time.
constexpr std::size_t kMostTracks = 64;

void require_count(std::size_t count) {
    if (count < 2 || count > kMostTracks) {
        throw quorvane::CallError(QUORVANE_BAD_ARGUMENT,
                                  fmt::format("2 to {} tracks of one conversation are leveled "
                                              "together, not {}",
                                              kMostTracks, count));
    }
}

/** The paths in a caller's array. */
std::vector<std::string> paths_of(const char* const* paths, std::size_t count, const char* name) {
    quorvane::require(paths, name);
    std::vector<std::string> all;
    for (std::size_t i = 0; i < count; ++i) {
        quorvane::with_errors_of_track(i, count, [&] { quorvane::require(paths[i], name); });
        all.emplace_back(paths[i]);
    }
    return all;
}

}  // namespace

using quorvane::checked_audio;
using quorvane::checked_buffer;
using quorvane::guarded;
using quorvane::Leveler;

const char* quorvane_version(void) {
    return kVersion;
}

const char* quorvane_error_name(int code) {
    return text_of(code).name;
}

const char* quorvane_error_text(int code) {
    return text_of(code).text;
}

quorvane_leveler* quorvane_new(void) {
    try {
        return new quorvane_leveler;
    } catch (...) {
        return nullptr;
    }
}

void quorvane_free(quorvane_leveler* leveler) {
    delete leveler;
}

void quorvane_options_init(quorvane_options* options, size_t size) {
    if (options != nullptr && size >= sizeof options->size) {
        std::memset(reinterpret_cast<char*>(options), 0, size);
        options->size = size;
    }
}

int quorvane_configure(quorvane_leveler* leveler, const quorvane_options* options) {
    return guarded(leveler, [&](Leveler& with) {
        with.configure(quorvane::settings_from(quorvane::read_struct(options, "options")));
    });
}

const char* quorvane_last_error(const quorvane_leveler* leveler) {
    return leveler == nullptr ? "the leveler is a null pointer" : leveler->error.c_str();
}

void quorvane_cancel(quorvane_leveler* leveler) {
    if (leveler != nullptr) {
        leveler->leveler.cancel();
    }
}

void quorvane_clear_cancel(quorvane_leveler* leveler) {
    if (leveler != nullptr) {
        leveler->leveler.clear_cancel();
    }
}

int quorvane_level(quorvane_leveler* leveler,
                   const quorvane_audio* audio,
                   const quorvane_buffer* result) {
    return guarded(leveler, [&](Leveler& with) {
        const quorvane_audio from = checked_audio(audio);
        with.level(from, checked_buffer(result, from.channels, from.frames > 0));
    });
}

int quorvane_limit(quorvane_leveler* leveler,
                   const quorvane_audio* audio,
                   const quorvane_buffer* result) {
    return guarded(leveler, [&](Leveler& with) {
        const quorvane_audio from = checked_audio(audio);
        with.limit(from, checked_buffer(result, from.channels, from.frames > 0));
    });
}

int quorvane_measure(quorvane_leveler* leveler, const quorvane_audio* audio) {
    return guarded(leveler, [&](Leveler& with) { with.measure(checked_audio(audio)); });
}

int quorvane_level_file(quorvane_leveler* leveler, const char* input, const char* output) {
    return guarded(leveler, [&](Leveler& with) {
        quorvane::require(input, "input");
        quorvane::require(output, "output");
        with.level_file(input, output);
    });
}

int quorvane_measure_file(quorvane_leveler* leveler, const char* input) {
    return guarded(leveler, [&](Leveler& with) {
        quorvane::require(input, "input");
        with.measure_file(input);
    });
}

int quorvane_level_together(quorvane_leveler* leveler,
                            const quorvane_audio* tracks,
                            const quorvane_buffer* results,
                            size_t count) {
    return guarded(leveler, [&](Leveler& with) {
        require_count(count);
        quorvane::read_struct(tracks, "tracks");
        quorvane::read_struct(results, "results");
        std::vector<quorvane_audio> from;
        std::vector<quorvane_buffer> to;
        for (std::size_t i = 0; i < count; ++i) {
            quorvane::with_errors_of_track(i, count, [&] {
                from.push_back(checked_audio(quorvane::element(tracks, i)));
                to.push_back(checked_buffer(quorvane::element(results, i), from[i].channels,
                                            from[i].frames > 0));
            });
        }
        with.level_together(from, to);
    });
}

int quorvane_level_files_together(quorvane_leveler* leveler,
                                  const char* const* inputs,
                                  const char* const* outputs,
                                  size_t count,
                                  const char* mix) {
    return guarded(leveler, [&](Leveler& with) {
        require_count(count);
        with.level_files_together(paths_of(inputs, count, "inputs"),
                                  paths_of(outputs, count, "outputs"), mix == nullptr ? "" : mix);
    });
}

int quorvane_begin(quorvane_leveler* leveler, int type, int sample_rate_hz, int channels) {
    return guarded(leveler, [&](Leveler& with) {
        quorvane::check_form(type, sample_rate_hz, channels);
        with.begin({type, sample_rate_hz, channels});
    });
}

int quorvane_write(quorvane_leveler* leveler, const quorvane_audio* audio) {
    return guarded(leveler, [&](Leveler& with) { with.write(checked_audio(audio)); });
}

int quorvane_finish(quorvane_leveler* leveler) {
    return guarded(leveler, [](Leveler& with) { with.finish(); });
}

int quorvane_read(quorvane_leveler* leveler,
                  const quorvane_buffer* result,
                  uint64_t frames,
                  uint64_t* got) {
    return guarded(leveler, [&](Leveler& with) {
        quorvane::require(got, "got");
        *got = 0;
        *got = with.read(checked_buffer(result, with.pushed_channels(), frames > 0), frames);
    });
}
