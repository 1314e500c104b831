#include "library/border/handle.h"

#include <fmt/format.h>

#include <exception>
#include <limits>
#include <new>

#include "library/run/call_guard.h"
#include "library/samples/frames.h"

namespace quorvane {
namespace {

constexpr int kMostChannelsGiven = 64;

/** A text in memory that is there already where there is none for another. */
void set_error(quorvane_leveler& leveler, const char* text) noexcept {
    try {
        leveler.error = text;
    } catch (...) {
        leveler.error.clear();
    }
}

void check_planes(const void* samples, const void* const* planes, int channels, const char* name) {
    if ((samples == nullptr) == (planes == nullptr)) {
        throw CallError(QUORVANE_BAD_ARGUMENT,
                        fmt::format("{}: set either samples or planes", name));
    }
    for (int channel = 0; planes != nullptr && channel < channels; ++channel) {
        if (planes[channel] == nullptr) {
            throw CallError(
                QUORVANE_BAD_ARGUMENT,
                fmt::format("{}: the plane of channel {} is a null pointer", name, channel));
        }
    }
}

}  // namespace

void require(const void* pointer, const char* name) {
    if (pointer == nullptr) {
        throw CallError(QUORVANE_BAD_ARGUMENT, fmt::format("{} is a null pointer", name));
    }
}

void require_size(std::size_t given, std::size_t least, const char* name) {
    constexpr std::size_t kMost = 4096;
    if (given < least || given > kMost) {
        throw CallError(
            QUORVANE_BAD_ARGUMENT,
            fmt::format("{}: size is {}, not that of the struct, {}", name, given, least));
    }
}

void check_form(int type, int sample_rate_hz, int channels) {
    if (sample_bytes(type) == 0) {
        throw CallError(QUORVANE_BAD_ARGUMENT, fmt::format("{} is not a sample type", type));
    }
    if (sample_rate_hz < 1) {
        throw CallError(QUORVANE_BAD_ARGUMENT,
                        fmt::format("the sample rate is {} Hz, not 1 or more", sample_rate_hz));
    }
    if (channels < 1) {
        throw CallError(QUORVANE_BAD_ARGUMENT, fmt::format("the audio has {} channels, not 1 to {}",
                                                           channels, kMostChannelsGiven));
    }
    if (channels > kMostChannelsGiven) {
        throw CallError(QUORVANE_UNSUPPORTED, fmt::format("the audio has {} channels, not 1 to {}",
                                                          channels, kMostChannelsGiven));
    }
}

quorvane_audio checked_audio(const quorvane_audio* audio) {
    const quorvane_audio known = read_struct(audio, "audio");
    check_form(known.type, known.sample_rate_hz, known.channels);
    const auto frame_bytes = sample_bytes(known.type) * static_cast<std::size_t>(known.channels);
    if (known.frames >
        static_cast<std::uint64_t>(std::numeric_limits<std::ptrdiff_t>::max()) / frame_bytes) {
        throw CallError(QUORVANE_BAD_ARGUMENT,
                        fmt::format("the audio cannot have {} frames", known.frames));
    }
    if (known.frames > 0) {
        check_planes(known.samples, known.planes, known.channels, "audio");
    }
    return known;
}

quorvane_buffer checked_buffer(const quorvane_buffer* buffer, int channels, bool is_used) {
    const quorvane_buffer known = read_struct(buffer, "result");
    if (is_used) {
        check_planes(known.samples, known.planes, channels, "result");
    }
    return known;
}

int code_of_current_exception(quorvane_leveler& leveler) noexcept {
    try {
        throw;
    } catch (const CallError& error) {
        set_error(leveler, error.what());
        return error.code();
    } catch (const CancelledCall&) {
        set_error(leveler, "cancelled");
        return QUORVANE_CANCELLED;
    } catch (const std::bad_alloc&) {
        set_error(leveler, "not enough memory");
        return QUORVANE_NO_MEMORY;
    } catch (const std::exception& error) {
        set_error(leveler, error.what());
        return QUORVANE_INTERNAL;
    } catch (...) {
        set_error(leveler, "an unknown fault of the library");
        return QUORVANE_INTERNAL;
    }
}

}  // namespace quorvane
