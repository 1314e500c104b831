#include "Common/audio/scratch_sounds.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "Common/files/copy_file.h"
#include "Common/files/descriptor.h"
#include "Common/reporting/failure.h"
#include "Common/reporting/write_error.h"

namespace level_engine {

namespace {

/** A file that has no name any more, or -1. */
int make_file(const std::string& base) {
    std::string path = base + "_scratch_XXXXXX";
    const int file = ::mkstemp(&path[0]);
    if (file != -1) {
        ::unlink(path.c_str());
        ::fcntl(file, F_SETFD, FD_CLOEXEC);
    }
    return file;
}

int reopen(int file, off_t begin) {
    return file == -1 || ::lseek(file, begin, SEEK_SET) == -1 ? -1
                                                              : ::fcntl(file, F_DUPFD_CLOEXEC, 0);
}

}  // namespace

ScratchSounds& ScratchSounds::of_this_thread() {
    thread_local ScratchSounds sounds;
    return sounds;
}

void ScratchSounds::reserve(const std::string& path, const std::string& base) {
    release(path);
    reserved_[path].base = base;
}

bool ScratchSounds::reserve_in(const std::string& path, int descriptor) {
    release(path);
    const off_t begin = descriptor == -1 ? -1 : ::lseek(descriptor, 0, SEEK_CUR);
    const int file = begin == -1 ? -1 : ::fcntl(descriptor, F_DUPFD_CLOEXEC, 0);
    if (file != -1) {
        reserved_[path].file = file;
        reserved_[path].begin = begin;
    }
    return file != -1;
}

bool ScratchSounds::has(const std::string& path) const {
    const auto found = reserved_.find(path);
    return found != reserved_.end() && found->second.file != -1;
}

void ScratchSounds::release(const std::string& path) {
    if (has(path)) {
        room_.push_back(reserved_[path].file);
    }
    reserved_.erase(path);
}

void ScratchSounds::drop_room() {
    for (const int file : room_) {
        ::close(file);
    }
    room_.clear();
}

void ScratchSounds::clear() {
    while (!reserved_.empty()) {
        release(reserved_.begin()->first);
    }
    drop_room();
}

int ScratchSounds::open_for_writing(const std::string& path) {
    const auto found = reserved_.find(path);
    if (found == reserved_.end()) {
        return -1;
    }
    int& file = found->second.file;
    if (file == -1 && !room_.empty()) {
        file = room_.back();
        room_.pop_back();
    } else if (file == -1) {
        file = make_file(found->second.base);
    }
    const off_t begin = found->second.begin;
    // Behind other bytes the library writes at the end of the file, wherever it is opened.
    const bool ends = begin == 0 || (file != -1 && ::ftruncate(file, begin) == 0);
    const int descriptor = ends ? reopen(file, begin) : -1;
    if (descriptor == -1) {
        release(path);
    }
    return descriptor;
}

int ScratchSounds::open_for_reading(const std::string& path) const {
    return has(path) ? reopen(reserved_.at(path).file, reserved_.at(path).begin) : -1;
}

void ScratchSounds::trim(int descriptor) {
    const off_t end = ::lseek(descriptor, 0, SEEK_CUR);
    struct stat status = {};
    const bool is_longer = end != -1 && ::fstat(descriptor, &status) == 0 && status.st_size > end;
    if (is_longer && ::ftruncate(descriptor, end) != 0) {
        return;  // bytes behind the samples stay: the file is longer than it need be
    }
}

int copy_sound(const std::string& from, const std::string& to) {
    ScratchSounds& scratch = ScratchSounds::of_this_thread();
    if (!scratch.has(from)) {
        scratch.release(to);
        return copy_file(from, to);
    }
    const Descriptor input(scratch.open_for_reading(from));
    const int held = scratch.open_for_writing(to);
    const Descriptor output =
        held != -1 ? Descriptor(held) : Descriptor(to, O_WRONLY | O_CREAT | O_TRUNC, 0600);
    if (!input.is_open() || !output.is_open() || !copy_all(input.get(), output.get())) {
        const int error = errno;
        reporting::note_write_error(error);
        reporting::say_failure(reporting::Kind::kSystem, to + ": " + std::strerror(error));
        return 1;
    }
    if (held != -1) {
        ScratchSounds::trim(held);
    }
    return 0;
}

}  // namespace level_engine
