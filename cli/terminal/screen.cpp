#include "cli/terminal/screen.h"

#include <fmt/format.h>
#include <langinfo.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sstream>

#include "leveling/words/text.h"

/*
 * Bars are redrawn in place: the cursor goes up by the rows that the last drawing took, which is
 * more than it wrote when the terminal became narrower meanwhile, and all below is wiped.
 */

namespace quorvane {
namespace {

constexpr std::size_t kPlainColumns = 100;  // without a terminal
// Often enough to look alive, seldom enough to cost nothing on a slow terminal.
constexpr auto kDrawEvery = std::chrono::milliseconds(100);
/** Time left is shown once it means something. */
constexpr double kLeastFraction = 0.04;
// Before that, the start of a worker would be taken for its speed.
constexpr double kLeastSeconds = 0.7;

/** The terminal's size, else what COLUMNS says, else a usual one: a pipe has no size. */
winsize size_of(FILE* stream) {
    winsize size{};
    if (ioctl(fileno(stream), TIOCGWINSZ, &size) != 0 || size.ws_col == 0) {
        const char* columns = getenv("COLUMNS");
        size.ws_col = static_cast<unsigned short>(columns ? atoi(columns) : 0);
        if (size.ws_col == 0) {
            size.ws_col = kPlainColumns;
        }
        if (size.ws_row == 0) {
            size.ws_row = 24;
        }
    }
    return size;
}

/** What the user asked for; by_itself decides for "auto". */
bool wanted(When when, bool by_itself) {
    return when == When::Always || (when == When::Auto && by_itself);
}

/** After the locale, which the program takes over at its start. */
bool unicode_terminal() {
    return strcmp(nl_langinfo(CODESET), "UTF-8") == 0;
}

/** Full cells only: a bar never looks finished before it is. */
std::string drawn_bar(double fraction, std::size_t columns, bool unicode) {
    const auto full = static_cast<std::size_t>(fraction * static_cast<double>(columns));
    std::string bar;
    for (std::size_t i = 0; i < columns; ++i) {
        bar += unicode ? (i < full ? "━" : "╌") : (i < full ? "#" : "-");
    }
    return bar;
}

/** The log is read in editors, too: a color there is an escape sequence that ends with "m". */
std::string without_colors(const std::string& text) {
    std::string plain;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\x1b') {
            i = std::min(text.find('m', i), text.size());
        } else {
            plain += text[i];
        }
    }
    return plain;
}

}  // namespace

Screen::Screen(const Settings& settings)
    : quiet_(settings.quiet), log_(nullptr, fclose), log_path_(settings.log) {
    if (!settings.log.empty()) {
        // Lines of several runs may go to one file: each is written in one piece, at its end.
        log_.reset(fopen(settings.log.c_str(), "ae"));
        if (!log_) {
            throw UsageError(
                fmt::format("--log {} cannot be written: {}", settings.log, strerror(errno)));
        }
    }
    // JSON or audio has the standard output to itself: another program is reading it.
    const bool taken = settings.json_on_standard_output() || settings.output == "-";
    out_ = taken ? stderr : stdout;
    out_is_terminal_ = isatty(fileno(out_));
    const char* term = getenv("TERM");
    // "dumb" knows no escape sequences; NO_COLOR is the convention of no-color.org.
    const bool dumb = term && strcmp(term, "dumb") == 0;
    color_ = wanted(settings.color, out_is_terminal_ && !dumb && !getenv("NO_COLOR"));
    bars_ = !quiet_ && wanted(settings.progress, isatty(STDERR_FILENO) && !dumb);
}

// For logrotate and the like: after SIGHUP the name leads to a new file.
void Screen::reopen_log() {
    if (log_path_.empty()) {
        return;
    }
    if (FILE* log = fopen(log_path_.c_str(), "ae")) {
        log_.reset(log);
        log_error_ = 0;
    } else {
        error(fmt::format("quorvane: --log {} cannot be opened again, the earlier file is used: {}",
                          log_path_, strerror(errno)));
    }
}

// Asked each time: the window may have changed its size.
std::size_t Screen::columns() const {
    return size_of(out_).ws_col;
}

std::string Screen::paint(const std::string& text, const char* code) const {
    return color_ ? fmt::format("\x1b[{}m{}\x1b[0m", code, text) : text;
}

// A pipe whose reader left is left out: head(1) has what it wanted.
std::vector<std::string> Screen::problems() const {
    std::vector<std::string> problems;
    if (log_error_ != 0) {
        problems.push_back(
            fmt::format("the log {} cannot be written: {}", log_path_, strerror(log_error_)));
    }
    if (out_error_ != 0 && out_error_ != EPIPE) {
        problems.push_back(
            fmt::format("the standard output cannot be written: {}", strerror(out_error_)));
    }
    return problems;
}

/** Returns 0, or the error as errno has it. */
int Screen::write_out(FILE* to, const std::string& text) {
    const bool written = fwrite(text.data(), 1, text.size(), to) == text.size() && fflush(to) == 0;
    return written ? 0 : errno;
}

// The log also gets what --quiet drops: it is read when something went wrong.
void Screen::log(const std::string& text) {
    if (!log_) {
        return;
    }
    // UTC, so that logs of several machines can be put together.
    const std::string time = utc_time_now() + " ";
    std::string lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        lines += line.empty() ? "" : time + without_colors(line) + "\n";
    }
    const int error = write_out(log_.get(), lines);
    log_error_ = log_error_ != 0 ? log_error_ : error;
}

// Bars are wiped first, and drawn again with the next draw().
void Screen::line(const std::string& text) {
    log(text);
    if (quiet_) {
        return;
    }
    clear();
    const int error = write_out(out_, text + "\n");
    out_error_ = out_error_ != 0 ? out_error_ : error;
}

// Errors are shown with --quiet as well.
void Screen::error(const std::string& text) {
    log(text);
    clear();
    write_out(stderr, text + "\n");
}

void Screen::clear() {
    if (drawn_widths_.empty()) {
        return;
    }
    // A terminal that became narrower has wrapped the lines that were drawn.
    const std::size_t columns = size_of(stderr).ws_col;
    std::size_t rows = 0;
    for (std::size_t width : drawn_widths_) {
        rows += std::max<std::size_t>(1, (width + columns - 1) / columns);
    }
    write_out(stderr, fmt::format("\x1b[{}A\r\x1b[J", rows));
    drawn_widths_.clear();
    drawn_at_ = {};
}

// A caller can skip the work of making bars that would not be shown.
bool Screen::wants_drawing() const {
    return bars_ && std::chrono::steady_clock::now() - drawn_at_ >= kDrawEvery;
}

void Screen::draw(const std::vector<Bar>& bars, const Bar& whole) {
    if (!bars_) {
        return;
    }
    const winsize size = size_of(stderr);
    // One column less: a full line makes some terminals wrap.
    const std::size_t columns = size.ws_col > 1 ? size.ws_col - 1u : 1u;
    // Rows for files: what has scrolled out of the screen could not be wiped any more.
    const std::size_t most = size.ws_row > 3 ? size.ws_row - 3u : 1u;
    const bool unicode = unicode_terminal();
    std::vector<std::string> lines;
    for (const Bar& bar : bars) {
        if (lines.size() == most && bars.size() > most) {
            lines.back() = fit(fmt::format("… and {} more", bars.size() - most + 1), columns);
            break;
        }
        lines.push_back(bar_line(bar, columns, unicode));
    }
    lines.push_back(bar_line(whole, columns, unicode));
    clear();
    std::string text;
    for (const std::string& line : lines) {
        text += line + "\n";
        drawn_widths_.push_back(display_width(line));
    }
    write_out(stderr, text);
    drawn_at_ = std::chrono::steady_clock::now();
}

std::string bar_line(const Screen::Bar& bar, std::size_t columns, bool unicode) {
    // Columns beyond which a longer name or bar shows nothing more.
    constexpr std::size_t kMostName = 36;
    constexpr std::size_t kMostBar = 40;
    const double fraction = std::clamp(bar.fraction, 0.0, 1.0);
    const std::string percent = fmt::format("{:3}%", static_cast<int>(fraction * 100));
    std::string left;
    if (fraction >= kLeastFraction && bar.elapsed_s >= kLeastSeconds && fraction < 1) {
        // As if the rest went as fast as what is done.
        left = clock_text(bar.elapsed_s / fraction * (1 - fraction)) + " left";
    }
    const std::string end = fmt::format(" {} {:>12}", percent, left);
    const std::string name = printable(bar.name);
    // What does not fit goes: first the bar, then the time, then parts of the name.
    if (columns < 24) {
        const std::size_t room = columns > percent.size() + 1 ? columns - percent.size() - 1 : 0;
        return room ? fit(name, room) + " " + percent : fit(percent, columns);
    }
    if (columns < 50) {
        return fit(name, columns - end.size()) + end;
    }
    const std::size_t bar_columns = std::min(kMostBar, (columns - end.size()) / 2 - 1);
    const std::size_t name_columns = std::min(kMostName, columns - end.size() - bar_columns - 1);
    return fit(name, name_columns) + " " + drawn_bar(fraction, bar_columns, unicode) + end;
}

}  // namespace quorvane
