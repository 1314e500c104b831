#pragma once

#include <sndfile.h>

#include <string>
#include <vector>

#include "Common/files/descriptor.h"

namespace quorvane {

/**
 * A file that libsndfile reads through a buffer. Its MP3 decoder reads every frame of a file when
 * it opens it, each with two calls to the system: 280 000 for an hour.
 */
class BufferedInput {
  public:
    /** Throws std::runtime_error with the system's reason. */
    explicit BufferedInput(const std::string& path);

    /** For sf_open_virtual, with this object as the user data. It must outlive the handle. */
    static SF_VIRTUAL_IO calls();

  private:
    static sf_count_t size(void* self);
    static sf_count_t seek(sf_count_t offset, int from, void* self);
    static sf_count_t read(void* to, sf_count_t count, void* self);
    static sf_count_t write(const void* from, sf_count_t count, void* self);
    static sf_count_t tell(void* self);

    /** Fills the buffer from the current place on. Returns false at the end and after an error. */
    bool fill();

    Descriptor file_;
    sf_count_t size_ = 0;
    sf_count_t at_ = 0;     // in the file, where the next byte is read
    sf_count_t begin_ = 0;  // in the file, where the buffer begins
    sf_count_t filled_ = 0;
    std::vector<char> buffer_;
};

}  // namespace quorvane
