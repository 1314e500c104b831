#include "leveling/words/text.h"

#include <fmt/format.h>
#include <wchar.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <ctime>
#include <vector>

/*
 * Text is handled as glyphs: the bytes of one code point with the columns it takes. A byte that is
 * no UTF-8 is a glyph of its own with one column, since file names may hold any bytes; on the
 * screen it is "?", as are all signs that would make a terminal do something or show a name other
 * than it is.
 */

namespace quorvane {
namespace {

struct Glyph {
    std::string bytes;
    std::size_t columns;
    std::uint32_t code;
    bool whole;  // false: its bytes are no UTF-8
};

/**
 * False for control characters of both sets (C0 and C1, which some terminals obey as single bytes
 * too) and for those that turn the direction of the text around them, so that a name cannot pose as
 * another.
 */
bool is_harmless(const Glyph& glyph) {
    const std::uint32_t code = glyph.code;
    const bool control = code < 0x20 || (code >= 0x7F && code < 0xA0);
    const bool turns = code == 0x061C || code == 0x200E || code == 0x200F ||
                       (code >= 0x202A && code <= 0x202E) || (code >= 0x2066 && code <= 0x2069);
    const bool line_end = code == 0x2028 || code == 0x2029;
    return glyph.whole && !control && !turns && !line_end;
}

std::vector<Glyph> glyphs_of(const std::string& text) {
    std::vector<Glyph> glyphs;
    for (std::size_t i = 0; i < text.size();) {
        const auto byte = [&](std::size_t at) { return static_cast<unsigned char>(text[at]); };
        const unsigned lead = byte(i);
        // The lead byte tells how many belong to the sign; what follows must begin with bits 10.
        const std::size_t wanted = lead < 0xC0 || lead > 0xF7 ? 1
                                   : lead < 0xE0              ? 2
                                   : lead < 0xF0              ? 3
                                                              : 4;
        std::uint32_t code = wanted == 1 ? lead : lead & (0xFFu >> (wanted + 1));
        std::size_t length = 1;
        for (; length < wanted && i + length < text.size() && (byte(i + length) & 0xC0) == 0x80;
             ++length) {
            code = code << 6 | (byte(i + length) & 0x3Fu);
        }
        // Signs of East Asia take two columns, combining ones none.
        const int columns = wcwidth(static_cast<wchar_t>(code));
        glyphs.push_back({text.substr(i, length),
                          columns < 0 ? 1 : static_cast<std::size_t>(columns), code,
                          length == wanted && (lead < 0x80 || wanted > 1)});
        i += length;
    }
    return glyphs;
}

}  // namespace

std::size_t display_width(const std::string& text) {
    std::size_t columns = 0;
    for (const Glyph& glyph : glyphs_of(text)) {
        columns += glyph.columns;
    }
    return columns;
}

std::string printable(const std::string& text) {
    std::string result;
    for (const Glyph& glyph : glyphs_of(text)) {
        result += is_harmless(glyph) ? glyph.bytes : "?";
    }
    return result;
}

std::string printable_lines(const std::string& text) {
    std::string shown;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t end = std::min(text.find('\n', at), text.size());
        shown += printable(text.substr(at, end - at)) + (end < text.size() ? "\n" : "");
        at = end + 1;
    }
    return shown;
}

std::string fit(const std::string& text, std::size_t columns) {
    const std::size_t width = display_width(text);
    if (width <= columns) {
        return text + std::string(columns - width, ' ');
    }
    if (columns == 0) {
        return "";
    }
    const std::vector<Glyph> glyphs = glyphs_of(text);
    // One column for the sign of what is missing. A sign of two columns may not fit: then there is
    // a space more at the end.
    const std::size_t tail_columns = (columns - 1) / 2;
    std::string head;
    std::size_t head_width = 0;
    for (const Glyph& glyph : glyphs) {
        if (head_width + glyph.columns > columns - 1 - tail_columns) {
            break;
        }
        head += glyph.bytes;
        head_width += glyph.columns;
    }
    std::string tail;
    std::size_t tail_width = 0;
    for (auto glyph = glyphs.rbegin(); glyph != glyphs.rend(); ++glyph) {
        if (tail_width + glyph->columns > tail_columns) {
            break;
        }
        tail.insert(0, glyph->bytes);
        tail_width += glyph->columns;
    }
    return head + "…" + tail + std::string(columns - 1 - head_width - tail_width, ' ');
}

std::string clock_text(double seconds) {
    const long total = std::lround(std::max(0.0, seconds));
    if (total >= 3600) {
        return fmt::format("{}:{:02}:{:02}", total / 3600, total / 60 % 60, total % 60);
    }
    return fmt::format("{}:{:02}", total / 60, total % 60);
}

std::string utc_time_now() {
    const std::time_t now = std::time(nullptr);
    std::tm parts{};
    gmtime_r(&now, &parts);
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts);
    return text;
}

}  // namespace quorvane
