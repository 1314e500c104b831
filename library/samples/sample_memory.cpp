#include "library/samples/sample_memory.h"

#include <algorithm>

#include "leveling/audio/seeking.h"
#include "leveling/audio/sound_file.h"

namespace quorvane {

SampleMemory::SampleMemory(const SampleForm& form, const char* samples, std::uint64_t frames)
    : header_(wav_header(form, frames * form.frame_bytes())),
      samples_(samples),
      sample_bytes_(static_cast<sf_count_t>(frames * form.frame_bytes())) {}

SndfileHandle SampleMemory::open() {
    cursors_.push_back({this, 0});
    return open_virtual({size, seek, read, write, tell}, &cursors_.back());
}

sf_count_t SampleMemory::size() const {
    return static_cast<sf_count_t>(header_.size()) + sample_bytes_;
}

/** Copies at most count bytes of the file from a place on; returns how many there were. */
sf_count_t SampleMemory::copy(char* to, sf_count_t from, sf_count_t count) const {
    const auto header_bytes = static_cast<sf_count_t>(header_.size());
    count = std::max<sf_count_t>(0, std::min(count, size() - from));
    const sf_count_t of_header = std::clamp<sf_count_t>(header_bytes - from, 0, count);
    std::copy_n(header_.data() + std::min(from, header_bytes), of_header, to);
    if (count > of_header) {  // else the place lies outside the samples
        std::copy_n(samples_ + (from + of_header - header_bytes), count - of_header,
                    to + of_header);
    }
    return count;
}

sf_count_t SampleMemory::size(void* cursor) {
    return static_cast<Cursor*>(cursor)->memory->size();
}

sf_count_t SampleMemory::seek(sf_count_t offset, int whence, void* cursor) {
    Cursor& at = *static_cast<Cursor*>(cursor);
    const sf_count_t place = sought(offset, whence, at.position, at.memory->size());
    at.position = place < 0 ? at.position : place;
    return place;
}

sf_count_t SampleMemory::read(void* to, sf_count_t count, void* cursor) {
    Cursor& at = *static_cast<Cursor*>(cursor);
    const sf_count_t copied = at.memory->copy(static_cast<char*>(to), at.position, count);
    at.position += copied;
    return copied;
}

sf_count_t SampleMemory::write(const void* /*from*/, sf_count_t /*count*/, void* /*cursor*/) {
    return 0;
}

sf_count_t SampleMemory::tell(void* cursor) {
    return static_cast<Cursor*>(cursor)->position;
}

}  // namespace quorvane
