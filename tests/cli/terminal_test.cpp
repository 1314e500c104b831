#include <gmock/gmock.h>

#include <clocale>
#include <cmath>
#include <sstream>

#include "cli/terminal/note_lines.h"
#include "cli/terminal/screen.h"
#include "cli/terminal/summary.h"
#include "leveling/words/levels.h"
#include "leveling/words/text.h"
#include "tests/support/fixtures.h"

using testing::HasSubstr;
using testing::Not;

namespace quorvane {
namespace {

class Terminal : public testing::Test {
  protected:
    Terminal() { setlocale(LC_CTYPE, "C.UTF-8"); }

    TempDir dir_;
};

TEST_F(Terminal, TextFitsItsColumnsWhateverItsLetters) {
    // "日" takes two columns, "ä" one.
    EXPECT_EQ(display_width("日ä"), 3u);
    for (const char* text : {"episode.wav", "日本語の録音.wav", "ä\xffö", ""}) {
        for (std::size_t columns = 0; columns < 20; ++columns) {
            SCOPED_TRACE(std::string(text) + " in " + std::to_string(columns));
            EXPECT_EQ(display_width(fit(text, columns)), columns);
        }
    }
    EXPECT_EQ(fit("long-episode-name.wav", 11), "long-…e.wav");
    EXPECT_EQ(printable("a\x1b[31m\nb"), "a?[31m?b");
    // One-byte and two-byte CSI, right-to-left override, isolate; letters of any script stay.
    EXPECT_EQ("?31m?1m?gpj.?", printable("\x9b"
                                         "31m\xC2\x9B"
                                         "1m\u202Egpj.\u2066"));
    EXPECT_EQ("日ä", printable("日ä"));
}

TEST_F(Terminal, ABarIsNeverWiderThanTheTerminal) {
    const Screen::Bar bar{"日本語の録音 a long name.wav", 0.5, 60};
    for (std::size_t columns = 1; columns < 200; ++columns) {
        SCOPED_TRACE(columns);
        EXPECT_LE(display_width(bar_line(bar, columns, true)), columns);
        EXPECT_EQ(bar_line(bar, columns, false).find("━"), std::string::npos);
    }
    EXPECT_THAT(bar_line(bar, 80, true), HasSubstr("50%    1:00 left"));
    EXPECT_THAT(bar_line({"x", 0.01, 0.1}, 80, true), Not(HasSubstr("left")));
}

FileFacts measured(const std::string& input, double lufs) {
    FileFacts facts;
    facts.input = input;
    facts.outcome = Outcome::Leveled;
    facts.before.emplace();
    facts.before->integrated_lufs = lufs;
    facts.after = facts.before;
    facts.after->integrated_lufs = -18;
    facts.leveling.emplace();
    facts.leveling->greatest_gain_db = 7.25;
    return facts;
}

TEST_F(Terminal, TheTableFitsAndNamesEachFileBelowTheSharedFolder) {
    const FactsList files = {measured("season/one/a.wav", -27.44),
                             measured("season/two/b.wav", -HUGE_VAL)};
    const std::string wide = loudness_table(files, 100);
    EXPECT_THAT(wide, HasSubstr("\none/a.wav "));
    EXPECT_THAT(wide, HasSubstr("-27.4"));
    EXPECT_THAT(wide, HasSubstr("-inf"));
    EXPECT_THAT(wide, HasSubstr("+7.2"));
    for (std::size_t columns : {30, 60, 79, 80, 100, 140}) {
        SCOPED_TRACE(columns);
        std::istringstream lines(loudness_table(files, columns));
        for (std::string line; std::getline(lines, line);) {
            EXPECT_LE(display_width(line), columns) << line;
        }
    }
    EXPECT_EQ(loudness_table({FileFacts{}}, 100), "");
    EXPECT_EQ(decimal(-0.04), "0.0");
}

TEST_F(Terminal, NotesOfAKindAreCounted) {
    FactsList files;
    for (std::size_t i = 0; i < 6; ++i) {
        FileFacts facts;
        facts.input = std::string(1, static_cast<char>('a' + i));
        facts.notes = {"has peaks of +" + std::to_string(i) + ".5 dBFS"};
        if (i == 1) {
            facts.notes.push_back("another note");
        }
        files.push_back(facts);
    }
    Settings settings;
    settings.log = dir_ / "log";
    {
        Screen screen(settings);
        print_notes(files, screen);
    }
    std::string text;
    std::istringstream lines(read_text(dir_ / "log"));
    for (std::string line; std::getline(lines, line);) {
        text += line.substr(line.find(' ') + 1) + "\n";  // without the time
    }
    EXPECT_EQ(
        "note: a: has peaks of +0.5 dBFS\nnote: b: has peaks of +1.5 dBFS\n"
        "note: c: has peaks of +2.5 dBFS\nnote: the same of 3 more files (--json lists them all)\n"
        "note: b: another note\n",
        text);
}

}  // namespace
}  // namespace quorvane
