#include "leveling/archive/bounded_lines.h"

namespace quorvane {

bool BoundedLines::next(std::string& line) {
    line.clear();
    too_long_ = false;
    offset_ = next_offset_;
    std::streambuf& bytes = *in_.rdbuf();
    for (int c = bytes.sbumpc(); c != std::char_traits<char>::eof(); c = bytes.sbumpc()) {
        ++next_offset_;
        if (static_cast<char>(c) == end_) {
            return true;
        }
        if (line.size() == most_) {
            too_long_ = true;
            std::string().swap(line);
        }
        if (!too_long_) {
            line += static_cast<char>(c);
        }
    }
    return next_offset_ > offset_;
}

}  // namespace quorvane
