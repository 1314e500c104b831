#pragma once

#include <cstdint>
#include <string>

namespace quorvane {

/**
 * How the size that the header of a chunk container, or of an AU file, gives the audio compares
 * with the file.
 */
struct DataSize {
    enum class Kind {
        Fits,     // or it is another container, or the size is left open as streams do
        Short,    // the file ends before the audio that was promised
        Zero,     // the size was never filled in; audio follows
        Padded,   // nothing but zeros follows the audio, more than a disk's block
        Trailing  // what follows the audio is neither a chunk nor the end
    };

    Kind kind = Kind::Fits;
    std::uint64_t promised = 0;  // bytes
    std::uint64_t there = 0;     // bytes from the audio's beginning to the end of the file
};

/** Throws std::system_error. */
DataSize compare_data_size(const std::string& path);

/** Writes the file again with a size for its audio that reaches to the file's end. */
void write_with_data_size(const std::string& from, const std::string& to);

}  // namespace quorvane
