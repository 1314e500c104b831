#include "Common/files/numbers.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <random>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

namespace {

/** All values that come out of a text, the flags after each try, and what is left at the end. */
template <class Read>
std::vector<std::tuple<double, int, std::string>> everything_read(const std::string& text,
                                                                  const Read& read) {
    std::istringstream is(text);
    std::vector<std::tuple<double, int, std::string>> found;
    for (bool more = true; more;) {
        double value = -1.0;
        more = read(is, value);
        const std::istringstream::pos_type at =
            is.rdbuf()->pubseekoff(0, std::ios::cur, std::ios::in);
        found.emplace_back(value, static_cast<int>(is.rdstate()),
                           text.substr(static_cast<std::size_t>(std::streamoff(at))));
    }
    return found;
}

TEST(Numbers, AreReadAsAStreamReadsThem) {
    const std::string expansion = "1." + std::string(150, '3');
    for (const std::string& text :
         {std::string(),
          std::string(" \n\t"),
          std::string("1"),
          std::string("1\n"),
          std::string("-23.123456789012\n0.5 -0\r\n7"),
          std::string("1.e3 .5 5. 1E-5 -1e+7 "),
          std::string("+5 6"),
          std::string("1e 2"),
          std::string("- 2"),
          std::string("1.2.3 4"),
          std::string("12-5 6"),
          std::string("3,5 1"),
          std::string("0x10 1"),
          std::string("nan 1"),
          std::string("inf 1"),
          std::string("1e400 1"),
          std::string("1e-400 1"),
          std::string("4.9e-324 1"),
          std::string("2.2250738585072011e-308\n"),
          std::string("9007199254740993 0.1000000000000000055511151231257827\n"),
          expansion + " 2",
          std::string(400, '3') + " 2",
          std::string("5 five 5")}) {
        SCOPED_TRACE(text);
        EXPECT_EQ(
            everything_read(text, [](std::istream& is,
                                     double& value) { return static_cast<bool>(is >> value); }),
            everything_read(text, read_number));
    }
}

TEST(Numbers, AreWrittenAsPrintfWritesThem) {
    std::mt19937_64 random(5);
    const auto expect_same = [](double value) {
        for (const Notation notation : {Notation::kFixed, Notation::kGeneral}) {
            for (const int digits : {2, 6, 12, 128}) {
                char expected[512];
                if (notation == Notation::kFixed) {
                    std::snprintf(expected, sizeof expected, "%.*f", digits, value);
                } else {
                    std::snprintf(expected, sizeof expected, "%.*g", digits, value);
                }
                char text[512];
                const std::size_t length = write_number(text, sizeof text, notation, digits, value);
                EXPECT_EQ(expected, std::string(text, length));
            }
        }
    };
    for (const double value :
         {0.0, -0.0, 1.0, 0.5, -200.0, 0.125, 1e15, 1e16, 123456.5, 1234565.0, 9.9999995, 1e-5,
          5e-324, 1e300, HUGE_VAL, -HUGE_VAL, std::nan(""), -std::nan("")}) {
        expect_same(value);
    }
    for (int i = 0; i < 2000; ++i) {
        const std::uint64_t bits = random();
        double any = 0.0;
        std::memcpy(&any, &bits, sizeof any);
        expect_same(any);
        expect_same(static_cast<double>(bits % 80000000) / -2e6);  // a level in dB
    }
    char small[4];
    EXPECT_EQ(0u, write_number(small, sizeof small, Notation::kFixed, 3, 1.0));
}

}  // namespace
