#pragma once

#include <chrono>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "cli/options/settings.h"

/*
 * Lines for people go to the standard output, or to the error stream where the first is taken by
 * JSON; errors always go to the error stream. Progress bars are drawn on the error stream below the
 * last line and wiped before the next one is written, so that nothing of them is left in a log or a
 * pipe.
 */

namespace quorvane {

/**
 * What the user sees of a run: lines that stay on the standard output, errors on the error stream,
 * and below them, on a terminal, a block of progress bars that is drawn again and again.
 */
class Screen {
  public:
    /** Opens the log, if there is to be one. Throws UsageError when that cannot be. */
    explicit Screen(const Settings& settings);

    /**
     * A finished thing. With JSON on the standard output the line goes to the error stream; with
     * --quiet it is dropped.
     */
    void line(const std::string& text);
    /** A failure: always on the error stream, also with --quiet. */
    void error(const std::string& text);

    /** Opens the log again, whose file was renamed meanwhile; the old one stays when it cannot. */
    void reopen_log();

    /** A file's name, the fraction of its work that is done (0 to 1), and for how long it ran. */
    struct Bar {
        std::string name;
        double fraction;
        double elapsed_s;
    };

    /** Draws the running files and the whole; more than fit the terminal are counted in a line. */
    void draw(const std::vector<Bar>& bars, const Bar& whole);

    /** True when draw() shows something and it is time for it. */
    bool wants_drawing() const;
    /** Wipes the bars; nothing if none are drawn. */
    void clear();

    /** After the terminal changed its size: the next draw() is not held back. */
    void resized() { drawn_at_ = {}; }

    // Whether lines may have colors, and whether they go to a terminal.
    bool color() const { return color_; }

    bool terminal() const { return out_is_terminal_; }

    std::size_t columns() const;  // of the lines that stay

    /**
     * Why lines were lost, a sentence for the log and one for the standard output; empty when none
     * was. A reader that left, such as head, loses nothing.
     */
    std::vector<std::string> problems() const;

    /** The text in the color, if colors are wanted: "31" red, "32" green, "33" yellow, "1" bold. */
    std::string paint(const std::string& text, const char* code) const;

  private:
    static int write_out(FILE* to, const std::string& text);
    void log(const std::string& text);

    bool quiet_;
    bool color_;
    bool bars_;
    FILE* out_;
    bool out_is_terminal_;
    std::unique_ptr<FILE, int (*)(FILE*)> log_;
    std::string log_path_;
    int log_error_ = 0;  // of the first line that was lost
    int out_error_ = 0;
    std::vector<std::size_t> drawn_widths_;
    std::chrono::steady_clock::time_point drawn_at_{};
};

/** The bar's line in so many columns, never wider: name, bar, per cent, time left, as they fit. */
std::string bar_line(const Screen::Bar& bar, std::size_t columns, bool unicode);

}  // namespace quorvane
