#pragma once

#include <cstdint>
#include <deque>
#include <sndfile.hh>
#include <string>

#include "library/samples/sample_file.h"

namespace quorvane {

/**
 * Interleaved frames in a caller's memory as a WAV file that libsndfile opens: nothing is copied
 * before it is read. The handles must not outlive this object, nor this object the memory.
 */
class SampleMemory {
  public:
    SampleMemory(const SampleForm& form, const char* samples, std::uint64_t frames);
    SampleMemory(const SampleMemory&) = delete;
    SampleMemory& operator=(const SampleMemory&) = delete;

    /** A handle with a position of its own. Throws std::runtime_error with libsndfile's reason. */
    SndfileHandle open();

  private:
    /** Where one handle reads. */
    struct Cursor {
        const SampleMemory* memory;
        sf_count_t position;
    };

    static sf_count_t size(void* cursor);
    static sf_count_t seek(sf_count_t offset, int whence, void* cursor);
    static sf_count_t read(void* to, sf_count_t count, void* cursor);
    static sf_count_t write(const void* from, sf_count_t count, void* cursor);
    static sf_count_t tell(void* cursor);

    sf_count_t size() const;
    sf_count_t copy(char* to, sf_count_t from, sf_count_t count) const;

    std::string header_;
    const char* samples_;
    sf_count_t sample_bytes_;
    std::deque<Cursor> cursors_;  // which stay where they are
};

}  // namespace quorvane
