#include "cli/terminal/terminal_text.h"

#include <fmt/format.h>
#include <wchar.h>

#include <algorithm>
#include <cmath>
#include <vector>

namespace cli {
namespace {

struct Glyph {
    std::string bytes;
    std::size_t columns;
};

std::vector<Glyph> glyphs_of(const std::string& text) {
    std::vector<Glyph> glyphs;
    for (std::size_t i = 0; i < text.size();) {
        const auto byte = [&](std::size_t at) { return static_cast<unsigned char>(text[at]); };
        const unsigned lead = byte(i);
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
        const int columns = wcwidth(static_cast<wchar_t>(code));
        glyphs.push_back(
            {text.substr(i, length), columns < 0 ? 1 : static_cast<std::size_t>(columns)});
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
    std::string result = text;
    for (char& c : result) {
        if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) {
            c = '?';
        }
    }
    return result;
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
        tail = glyph->bytes + tail;
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

}  // namespace cli
