#pragma once

#include <cstddef>
#include <cstring>
#include <string>

#include "library/run/leveler.h"

/** What a caller holds: the leveler, and the sentence of the last failure. */
struct quorvane_leveler {
    quorvane::Leveler leveler;
    std::string error;
};

namespace quorvane {

/** Throws CallError where a pointer is null. */
void require(const void* pointer, const char* name);

/** Bytes that a struct had in version 4.0; none is smaller. */
template <class Struct>
constexpr std::size_t least_size() {
    return sizeof(Struct);
}

/** Throws CallError unless the size is that of this version or of a later one. */
void require_size(std::size_t given, std::size_t least, const char* name);

/**
 * A caller's struct as this version knows it. Throws CallError where it is null, smaller than any
 * version's, or sets fields of a later version.
 */
template <class Struct>
Struct read_struct(const Struct* given, const char* name) {
    require(given, name);
    require_size(given->size, least_size<Struct>(), name);
    const char* const bytes = reinterpret_cast<const char*>(given);
    for (std::size_t i = sizeof(Struct); i < given->size; ++i) {
        if (bytes[i] != 0) {
            throw CallError(QUORVANE_BAD_ARGUMENT,
                            std::string(name) + " sets a field that this version of the library, " +
                                quorvane_version() + ", does not have");
        }
    }
    Struct known;
    std::memcpy(&known, given, sizeof known);
    return known;
}

/** Fills in a caller's struct; fields of a later version become zero. */
template <class Struct>
void write_struct(const Struct& from, Struct* to, const char* name) {
    require(to, name);
    const std::size_t size = to->size;
    require_size(size, least_size<Struct>(), name);
    std::memset(reinterpret_cast<char*>(to), 0, size);
    std::memcpy(to, &from, sizeof from);
    to->size = size;
}

/** An element of a caller's array: all have the size that the first one, which is checked, has. */
template <class Struct>
const Struct* element(const Struct* first, std::size_t index) {
    return reinterpret_cast<const Struct*>(reinterpret_cast<const char*>(first) +
                                           index * first->size);
}

/** The audio of a call, checked; throws CallError. */
quorvane_audio checked_audio(const quorvane_audio* audio);
quorvane_buffer checked_buffer(const quorvane_buffer* buffer, int channels, bool is_used);
void check_form(int type, int sample_rate_hz, int channels);

/** The code of the exception that is being handled; the sentence goes to the leveler. */
int code_of_current_exception(quorvane_leveler& leveler) noexcept;

/** Calls work for a leveler and returns the code of what it throws; nothing passes. */
template <class Work>
int guarded(quorvane_leveler* leveler, const Work& work) noexcept {
    if (leveler == nullptr) {
        return QUORVANE_BAD_ARGUMENT;
    }
    try {
        leveler->error.clear();
        work(leveler->leveler);
        return QUORVANE_OK;
    } catch (...) {
        return code_of_current_exception(*leveler);
    }
}

}  // namespace quorvane
