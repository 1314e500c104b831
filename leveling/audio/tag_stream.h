#pragma once

#include <taglib/taglib.h>
#include <taglib/tiostream.h>

#include <cstddef>
#include <string>

#include "Common/files/descriptor.h"

namespace quorvane {

/**
 * A file for TagLib whose errors are kept. The library's own streams look at the result of no read
 * and no write, so that a full disk gives a file without tags, or half a file, and a success.
 */
class TagStream : public TagLib::IOStream {
  public:
    enum class For { Reading, Writing };

#if TAGLIB_MAJOR_VERSION >= 2
    using Offset = TagLib::offset_t;
    using Start = TagLib::offset_t;
    using Count = std::size_t;
#else
    using Offset = long;
    using Start = unsigned long;
    using Count = unsigned long;
#endif

    /** Throws std::system_error when the file cannot be opened. */
    TagStream(const std::string& path, For use);

    /** Throws std::system_error when anything has failed up to now. */
    void require_no_error() const;

    TagLib::FileName name() const override {
        return path_.c_str();
    }

    TagLib::ByteVector readBlock(Count length) override;
    void writeBlock(const TagLib::ByteVector& data) override;
    void insert(const TagLib::ByteVector& data, Start start = 0, Count replace = 0) override;
    void removeBlock(Start start = 0, Count length = 0) override;

    bool readOnly() const override {
        return use_ == For::Reading;
    }

    bool isOpen() const override {
        return true;
    }

    void seek(Offset offset, Position from = Beginning) override;

    Offset tell() const override {
        return position_;
    }

    Offset length() override;
    void truncate(Offset length) override;

  private:
    Count read_at(Offset place, char* bytes, Count count);
    void write_at(Offset place, const char* bytes, Count count);
    void move_tail(Offset from, Offset to);
    void keep_error();

    std::string path_;
    For use_;
    Descriptor file_;
    Offset position_ = 0;
    int error_ = 0;  // the first one's errno
};

}  // namespace quorvane
