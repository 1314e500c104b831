#include "leveling/audio/tag_stream.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <vector>

namespace quorvane {

// Throws std::system_error where the file cannot be opened.
TagStream::TagStream(const std::string& path, For use)
    : path_(path), use_(use), file_(path, use == For::Reading ? O_RDONLY : O_RDWR) {
    if (!file_.is_open()) {
        throw std::system_error(errno, std::generic_category(), path_);
    }
}

void TagStream::require_no_error() const {
    if (error_ != 0) {
        throw std::system_error(error_, std::generic_category(), "its tags");
    }
}

// The tag library has no way to report an error: it is kept here until the caller looks.
void TagStream::keep_error() {
    error_ = error_ != 0 ? error_ : errno;
}

// Gives less than was requested at the file's end or after an error.
TagStream::Count TagStream::read_at(Offset place, char* bytes, Count count) {
    Count done = 0;
    while (done < count) {
        const ssize_t got =
            pread(file_.get(), bytes + done, count - done, place + static_cast<Offset>(done));
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got < 0) {
            keep_error();
        }
        if (got <= 0) {
            break;
        }
        done += static_cast<Count>(got);
    }
    return done;
}

// An error ends the writing and is kept.
void TagStream::write_at(Offset place, const char* bytes, Count count) {
    for (Count done = 0; done < count;) {
        const ssize_t put =
            pwrite(file_.get(), bytes + done, count - done, place + static_cast<Offset>(done));
        if (put < 0 && errno != EINTR) {
            keep_error();
            return;
        }
        done += put > 0 ? static_cast<Count>(put) : 0;
    }
}

TagLib::ByteVector TagStream::readBlock(Count length) {
    // What a length field claims need not be there.
    const Offset rest = std::max<Offset>(0, this->length() - position_);
    const Count count = std::min(length, static_cast<Count>(rest));
    TagLib::ByteVector block(static_cast<unsigned>(count), '\0');
    const Count got = read_at(position_, block.data(), count);
    position_ += static_cast<Offset>(got);
    block.resize(static_cast<unsigned>(got));
    return block;
}

void TagStream::writeBlock(const TagLib::ByteVector& data) {
    write_at(position_, data.data(), data.size());
    position_ += static_cast<Offset>(data.size());
}

/** Moves all from one place on to another, from the end that is not overwritten meanwhile. */
void TagStream::move_tail(Offset from, Offset to) {
    constexpr Offset kBlockBytes = 1 << 16;
    std::vector<char> block(kBlockBytes);
    const Offset total = length() - from;
    for (Offset done = 0; done < total && error_ == 0;) {
        const Offset count = std::min(kBlockBytes, total - done);
        const Offset at = to < from ? done : total - done - count;
        const Count got = read_at(from + at, block.data(), static_cast<Count>(count));
        write_at(to + at, block.data(), got);
        done += count;
    }
}

// The rest of the file moves where the lengths differ.
void TagStream::insert(const TagLib::ByteVector& data, Start start, Count replace) {
    const auto at = static_cast<Offset>(start);
    const Offset behind = at + static_cast<Offset>(replace);
    const Offset new_behind = at + static_cast<Offset>(data.size());
    // So many bytes shorter; below 0 the file becomes longer.
    const Offset shorter = behind - new_behind;
    const Offset old_length = length();
    if (shorter != 0 && behind < old_length) {
        move_tail(behind, new_behind);
    }
    // Only now, since the bytes at the end had to be moved first.
    if (shorter > 0) {
        truncate(old_length - shorter);
    }
    write_at(at, data.data(), data.size());
    position_ = new_behind;
}

void TagStream::removeBlock(Start start, Count length) {
    insert(TagLib::ByteVector(), start, length);
}

void TagStream::seek(Offset offset, Position from) {
    // A place before the start is the start.
    const Offset base = from == Beginning ? 0 : from == Current ? position_ : length();
    position_ = std::max<Offset>(0, base + offset);
}

TagStream::Offset TagStream::length() {
    struct stat status {};

    if (fstat(file_.get(), &status) != 0) {
        keep_error();
    }
    return static_cast<Offset>(status.st_size);
}

void TagStream::truncate(Offset length) {
    if (ftruncate(file_.get(), length) != 0) {
        keep_error();
    }
}

}  // namespace quorvane
