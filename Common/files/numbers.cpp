#include "Common/files/numbers.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <ios>
#include <streambuf>
#include <string>
#include <system_error>

namespace level_engine {

// What a C++ library has that converts floating point numbers, too.
#ifdef __cpp_lib_to_chars
#define QUORVANE_FAST_NUMBERS 1
#else
#define QUORVANE_FAST_NUMBERS 0
#endif

namespace {

constexpr int kEnd = std::char_traits<char>::eof();

bool is_space(int c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

bool is_of_number(int c) {
    return (c >= '0' && c <= '9') || c == '.' || c == '-' || c == 'e' || c == 'E' || c == '+';
}

bool is_plain_number(const char* word, std::size_t length, double& value) {
#if QUORVANE_FAST_NUMBERS
    const std::from_chars_result result = std::from_chars(word, word + length, value);
    return result.ec == std::errc() && result.ptr == word + length;
#else
    static_cast<void>(word);
    static_cast<void>(length);
    static_cast<void>(value);
    return false;
#endif
}

/**
 * Takes a number that fills the whole word up to the next space. False when the next word is
 * anything else; then it stands in the stream as it did.
 */
bool take_plain_number(std::istream& is, double& value) {
    char word[160];
    std::streambuf& text = *is.rdbuf();
    int c = text.sgetc();
    while (is_space(c)) {
        c = text.snextc();
    }
    std::size_t length = 0;
    for (; length < sizeof word && is_of_number(c); c = text.snextc()) {
        word[length++] = static_cast<char>(c);
    }
    double number = 0.0;
    if ((c == kEnd || is_space(c)) && is_plain_number(word, length, number)) {
        if (c == kEnd) {
            is.setstate(std::ios::eofbit);
        }
        value = number;
        return true;
    }
    const std::streamoff back = -static_cast<std::streamoff>(length);
    if (length > 0 && text.pubseekoff(back, std::ios::cur, std::ios::in) == std::streampos(-1)) {
        is.setstate(std::ios::badbit);
    }
    return false;
}

}  // namespace

bool read_number(std::istream& is, double& value) {
    try {
        if (QUORVANE_FAST_NUMBERS != 0 && is.good() && take_plain_number(is, value)) {
            return true;
        }
    } catch (const std::ios_base::failure&) {
        // A read error throws this below the stream, which reports it by its bad bit.
        is.setstate(std::ios::badbit);
    }
    return static_cast<bool>(is >> value);
}

std::size_t write_number(
    char* text, std::size_t size, Notation notation, int digits, double value) {
#if QUORVANE_FAST_NUMBERS
    const std::chars_format format =
        notation == Notation::kFixed ? std::chars_format::fixed : std::chars_format::general;
    const std::to_chars_result result = std::to_chars(text, text + size, value, format, digits);
    return result.ec == std::errc() ? static_cast<std::size_t>(result.ptr - text) : 0;
#else
    // printf wants room for a 0 behind the number.
    char terminated[512];
    const int length = std::snprintf(terminated, sizeof terminated,
                                     notation == Notation::kFixed ? "%.*f" : "%.*g", digits, value);
    if (length < 0 || static_cast<std::size_t>(length) > size ||
        static_cast<std::size_t>(length) >= sizeof terminated) {
        return 0;
    }
    std::copy_n(terminated, length, text);
    return static_cast<std::size_t>(length);
#endif
}

}  // namespace level_engine
