#include "leveling/report/report.h"

#include <fmt/format.h>

#include <algorithm>
#include <boost/algorithm/string/case_conv.hpp>
#include <cctype>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <set>
#include <utility>

#include "Common/version.h"
#include "leveling/facts/destinations.h"
#include "leveling/facts/preparation_words.h"
#include "leveling/publish/verdict.h"
#include "leveling/report/heard.h"
#include "leveling/report/html.h"
#include "leveling/report/report_chart.h"
#include "leveling/storage/staged_output.h"
#include "leveling/words/levels.h"
#include "leveling/words/text.h"

namespace quorvane {
namespace fs = std::filesystem;

namespace {

/*
 * From top to bottom a page answers what is asked in that order: is it good, what does it sound
 * like, what was done over time, where may it go, the numbers with what they mean, and the
 * passages. Every name and every cause comes from outside and is escaped where it is put in; all
 * other texts are ours.
 */

constexpr std::size_t kMostOpenRows = 40;  // a longer table of passages is folded

std::string name_of(const FileFacts& facts) {
    return fs::path(facts.input).filename().string();
}

std::string channels_text(int channels) {
    if (channels == 1) {
        return "mono";
    }
    if (channels == 2) {
        return "stereo";
    }
    return fmt::format("{} channels", channels);
}

/** As a reader would say it; the words of the JSON are for programs. */
std::string outcome_text(const FileFacts& facts) {
    switch (facts.outcome) {
        case Outcome::Leveled:
            return "leveled";
        case Outcome::Copied:
            return "copied unchanged";
        case Outcome::Analyzed:
            return "measured";
        case Outcome::UpToDate:
            return "up to date";
        case Outcome::Skipped:
            return "skipped";
        case Outcome::Planned:
            return "planned";
        case Outcome::Failed:
            return "failed";
        case Outcome::Damaged:
            return "damaged";
        case Outcome::Interrupted:
            return "not finished";
    }
    return "";
}

/** The sentence that comes first, colored by whether all asked for is met. */
std::string verdict_html(const std::string& text, const ReportOptions& options, bool ready) {
    const char* color = options.destinations.empty() ? "" : ready ? " ready" : " missing";
    return fmt::format("<p class=\"verdict{}\">{}</p>\n", color, escape_html(text));
}

/** Name, verdict, what kind of file it is, where it went, and whatever went wrong or was odd. */
std::string heading(const FileFacts& facts, const ReportOptions& options) {
    std::string text = fmt::format("<h1>{}</h1>\n", escape_html(name_of(facts)));
    text += verdict_html(verdict(facts, options.destinations, Face::Page), options,
                         is_ready(facts, options.destinations));
    text += fmt::format("<p class=\"soft\">{}, {} Hz, {}, {}</p>\n", escape_html(facts.format),
                        facts.sample_rate_hz, channels_text(facts.channels),
                        clock_text(facts.duration_s()));
    if (!facts.output.empty() && !is_failure(facts.outcome)) {
        text += fmt::format("<p class=\"soft\">Written to {}</p>\n", escape_html(facts.output));
    }
    if (!facts.cause.empty()) {
        text += fmt::format("<p class=\"banner\"><b>{}</b>: {}</p>\n", outcome_text(facts),
                            escape_html(facts.cause));
    }
    for (const std::string& note : facts.notes) {
        text += fmt::format("<p class=\"banner\">{}</p>\n", escape_html(note));
    }
    if (facts.preparation) {
        std::string done;
        for (const std::string& words : words_of(*facts.preparation, Telling::Everything)) {
            done += (done.empty() ? "" : "; ") + words;
        }
        text +=
            done.empty() ? "" : fmt::format("<p class=\"soft\">Done: {}.</p>\n", escape_html(done));
    }
    return text;
}

/** A level with one decimal. What has none is told in a word instead of an infinity. */
std::string shown(double value) {
    return std::isfinite(value) ? decimal(value) : "silent";
}

/** A measured figure: how it is called, and what it says to one who never measured anything. */
struct Figure {
    const char* title;
    const char* unit;
    double Loudness::*field;
    const char* meaning;
};

constexpr Figure kFigures[] = {
    {"Loudness", "LUFS", &Loudness::integrated_lufs,
     "How loud the whole recording sounds on average, pauses left out. Nearer to 0 is louder."},
    {"Loudness range", "LU", &Loudness::range_lu,
     "How far its quiet and its loud stretches lie apart. Small is easy to follow in a car or "
     "on a train."},
    {"True peak", "dBTP", &Loudness::true_peak_dbtp,
     "The highest point of the sound wave, also between two samples. Above −1 a player or an "
     "encoder may distort it."},
    {"Sample peak", "dBFS", &Loudness::sample_peak_dbfs,
     "The largest single sample. 0 is the most that a file can hold."},
    {"RMS level", "dBFS", &Loudness::rms_dbfs,
     "The average power of all samples, pauses included, as audiobook shops measure it."},
    {"Pauses", "dBFS", &Loudness::pauses_dbfs,
     "The level of the quietest half second: what is heard when nobody speaks."},
};

/** value may hold markup; all four are texts of ours. */
std::string card(const char* title,
                 const std::string& value,
                 const char* unit,
                 const char* meaning) {
    return fmt::format(
        "<div class=\"number\"><h3>{}</h3><div class=\"value\">{} <small>{}</small></div><p>{}"
        "</p></div>\n",
        title, value, unit, meaning);
}

std::string numbers(const FileFacts& facts) {
    std::string text = "<h2>Numbers</h2>\n<div class=\"numbers\">\n";
    for (const Figure& figure : kFigures) {
        std::string value = shown((*facts.before).*figure.field);
        if (facts.after) {
            value =
                fmt::format("<small>{} →</small> {}", value, shown((*facts.after).*figure.field));
        }
        text += card(figure.title, value, figure.unit, figure.meaning);
    }
    if (facts.leveling) {
        const Leveling& gain = *facts.leveling;
        text += card("Leveling gain",
                     fmt::format("{:+.1f} <small>({:+.1f} to {:+.1f})</small>", gain.mean_gain_db,
                                 gain.least_gain_db, gain.greatest_gain_db),
                     "dB",
                     "What leveling added on average (and at least and at most) to bring the "
                     "passages together, before the whole got its final level.");
    }
    return text + "</div>\n";
}

/** Met or not, what is missing, and beside it the way to mend that. */
std::string standing(const FileFacts& facts, const Destination& destination) {
    const DestinationCheck check = check_file(destination, facts);
    std::string text = "<span class=\"met\">✓ ready</span>";
    if (!check.met()) {
        const std::string way = remedy(check, facts, Face::Page);
        text = fmt::format("<span class=\"off\">✗ not yet:</span> {}", check.words());
        text += way.empty() ? "" : fmt::format(" <span class=\"soft\">({})</span>", way);
    }
    return text;
}

std::string destination_row(const FileFacts& facts, const Destination& destination, int channels) {
    // A place with one target for mono and another for stereo gets two rows, one of them dimmed.
    const bool applies = destination.mono_target == destination.other_target ||
                         (channels == 1) == (facts.channels == 1);
    std::string name = escape_html(destination.name);
    if (destination.mono_target != destination.other_target) {
        name += channels == 1 ? ", mono" : ", stereo";
    }
    const std::string result = applies
                                   ? standing(facts, destination)
                                   : fmt::format("this file is {}", channels_text(facts.channels));
    return fmt::format("<tr{}><th scope=\"row\">{}</th><td>{}</td><td>{}</td></tr>\n",
                       applies ? "" : " class=\"elsewhere\"", name, destination.asks(channels),
                       result);
}

/** Every place that is known, whether it was asked for or not. */
std::string destinations_table(const FileFacts& facts) {
    std::string text =
        "<h2>Where it may go</h2>\n<table class=\"stack destinations\">\n<thead><tr>"
        "<th scope=\"col\">Where</th><th scope=\"col\">Asks for</th><th scope=\"col\">This file"
        "</th></tr></thead>\n<tbody>\n";
    for (const Destination& destination : destinations()) {
        if (destination.mono_target != destination.other_target) {
            text += destination_row(facts, destination, 2);
            text += destination_row(facts, destination, 1);
        } else {
            text += destination_row(facts, destination, facts.channels);
        }
    }
    return text + "</tbody>\n</table>\n";
}

/** The passages as they are heard, with the gain that each got in the end. */
std::string passages(const FileFacts& facts) {
    const std::vector<Passage> rows = heard_passages(facts);
    if (rows.empty()) {
        return "";
    }
    std::string table =
        "<table class=\"passages\">\n<thead><tr><th>From</th><th>To</th><th class=\"n\">Level "
        "before</th><th class=\"n\">Gain</th></tr></thead>\n<tbody>\n";
    for (const Passage& passage : rows) {
        table += fmt::format(
            "<tr><td><span class=\"swatch {}\"></span>{}</td><td>{}</td><td class=\"n\">{} dB</td>"
            "<td class=\"n\">{:+.1f} dB</td></tr>\n",
            gain_class(passage.gain_db), clock_text(passage.from_s), clock_text(passage.to_s),
            shown(passage.level_db), passage.gain_db);
    }
    table += "</tbody>\n</table>\n";
    const std::string title = rows.size() == 1
                                  ? std::string("1 passage of steady loudness")
                                  : fmt::format("{} passages of steady loudness", rows.size());
    if (rows.size() > kMostOpenRows) {
        table = fmt::format("<details><summary>Show all {}</summary>\n{}</details>\n", rows.size(),
                            table);
    }
    return fmt::format(
        "<h2>{}</h2>\n<p class=\"soft\">Each gets the gain that brings it to the level of all; the "
        "level is measured on the cleaned sound, without pauses. Passages within 1 dB of each "
        "other "
        "are shown as one, and what is shorter than 1.5 s with its neighbour.</p>\n{}",
        title, table);
}

/** Which norms the numbers follow, and which version wrote them, for who compares later. */
std::string footer() {
    return std::string("<footer>Loudness after ITU-R BS.1770 and EBU R 128. Written by quorvane ") +
           kVersion + ".</footer>\n";
}

/** A file that no report has written keeps its name, and the page gets another one. */
bool is_foreign(const fs::path& page) {
    std::ifstream in(page, std::ios::binary);
    const std::string start = kReportStart;
    std::string text(start.size(), '\0');
    in.read(&text[0], static_cast<std::streamsize>(text.size()));
    return in.gcount() > 0 && text != start;
}

/**
 * The page's name in the report's folder: the file's own, each once. The end of what is too long
 * for a file name is cut.
 */
std::string page_name(const fs::path& folder,
                      const FileFacts& facts,
                      std::set<std::string>& taken) {
    constexpr std::size_t kMostBytes = 200;
    std::string base = name_of(facts);
    base.resize(std::min(base.size(), kMostBytes));
    std::string name = base + ".html";
    // Lower case, since a file system may hold "A.html" and "a.html" for one.
    for (int n = 2; !taken.insert(boost::to_lower_copy(name)).second || is_foreign(folder / name);
         ++n) {
        name = fmt::format("{}-{}.html", base, n);
    }
    return name;
}

/** The name as a relative link: all but the plainest bytes as %XX. */
std::string link_to(const std::string& name) {
    std::string link;
    for (char c : name) {
        const auto byte = static_cast<unsigned char>(c);
        const bool plain = (byte < 0x80 && isalnum(byte)) || c == '.' || c == '-' || c == '_';
        link += plain ? std::string(1, c) : fmt::format("%{:02X}", byte);
    }
    return link;
}

/** Ready, or what is missing in few words; the way to mend it is on the file's page. */
std::string destination_cell(const FileFacts& facts, const Destination& destination) {
    if (!facts.before) {
        return "<td></td>";
    }
    const DestinationCheck check = check_file(destination, facts);
    return fmt::format("<td data-label=\"{}\">{}</td>", destination.name,
                       check.met() ? std::string("<span class=\"met\">✓ ready</span>")
                                   : "<span class=\"off\">✗</span> " + check.words());
}

/** What became of the file, in the color of that, and why. */
std::string result_cell(const FileFacts& facts) {
    const bool fine = facts.outcome == Outcome::Leveled || facts.outcome == Outcome::Analyzed ||
                      facts.outcome == Outcome::UpToDate;
    const char* color = fine ? "met" : is_failure(facts.outcome) ? "off" : "soft";
    std::string result = fmt::format("<span class=\"{}\">{}</span>", color, outcome_text(facts));
    if (!facts.cause.empty()) {
        result += fmt::format("<br><span class=\"soft\">{}</span>", escape_html(facts.cause));
    }
    return "<td>" + result + "</td>";
}

/** The label is shown where the table has become a stack of lines; an empty value has none. */
std::string number_cell(const char* label, const std::string& value, const char* unit) {
    return value.empty()
               ? std::string("<td class=\"n\"></td>")
               : fmt::format("<td class=\"n\" data-label=\"{}\">{} {}</td>", label, value, unit);
}

/** page: the file's own, to link to; empty for one that was not measured. */
std::string index_row(const FileFacts& facts,
                      const std::string& page,
                      const ReportOptions& options) {
    const std::string name = escape_html(facts.input);
    const auto both = [&](double Loudness::*field) {
        if (!facts.before) {
            return std::string();
        }
        std::string text = shown((*facts.before).*field);
        if (facts.after) {
            text += " → " + shown((*facts.after).*field);
        }
        return text;
    };
    std::string row = fmt::format(
        "<tr><td>{}</td>",
        page.empty() ? name : fmt::format("<a href=\"{}\">{}</a>", link_to(page), name));
    row += result_cell(facts);
    for (const std::string& word : options.destinations) {
        row += destination_cell(facts, *find_destination(word));
    }
    row += number_cell("Loudness", both(&Loudness::integrated_lufs), "LUFS");
    row += number_cell("Range", both(&Loudness::range_lu), "LU");
    row += number_cell("True peak", both(&Loudness::true_peak_dbtp), "dBTP");
    row += number_cell("Leveling gain", facts.leveling ? gain_text(*facts.leveling) : "", "dB");
    return row + "</tr>\n";
}

/** Whether a page has an index beside it. */
enum class Place { Alone, InFolder };

/** A whole page. What was not measured has its heading alone. */
std::string page_of(const FileFacts& facts, const ReportOptions& options, Place place) {
    std::string body = place == Place::InFolder
                           ? "<p class=\"back\"><a href=\"index.html\">← All files</a></p>\n"
                           : "";
    body += heading(facts, options);
    if (facts.before) {
        if (options.listening_part) {
            body += options.listening_part(facts);
        }
        if (facts.duration_s() > 0) {
            body += "<h2>Over time</h2>\n" + loudness_figure(facts);
        }
        body += gain_figure(facts) + destinations_table(facts) + numbers(facts) + passages(facts);
    }
    return html_page(name_of(facts), body + footer());
}

/** rows: one for each of the files, made while they finished. */
std::string index_page(const FactsList& files,
                       const std::string& rows,
                       const ReportOptions& options) {
    std::string columns;
    for (const std::string& word : options.destinations) {
        columns += fmt::format("<th scope=\"col\">{}</th>", find_destination(word)->name);
    }
    const bool ready = std::all_of(files.begin(), files.end(), [&](const FileFacts& facts) {
        return is_ready(facts, options.destinations);
    });
    return fmt::format(
        "<h1>{} file{}</h1>\n{}<p class=\"soft\">Each number before and after; each name leads to "
        "the file's own page.</p>\n<table class=\"stack files\">\n<thead><tr><th scope=\"col\">"
        "File</th><th scope=\"col\">Result</th>{}<th class=\"n\" scope=\"col\">Loudness</th><th "
        "class=\"n\" scope=\"col\">Range</th><th class=\"n\" scope=\"col\">True peak</th><th "
        "class=\"n\" scope=\"col\">Leveling gain</th></tr></thead>\n<tbody>\n{}</tbody>\n"
        "</table>\n{}",
        files.size(), files.size() == 1 ? "" : "s",
        verdict_html(verdict(files, options.destinations, Face::Page), options, ready), columns,
        rows, footer());
}

}  // namespace

std::string report_page(const FileFacts& facts, const ReportOptions& options) {
    return page_of(facts, options, Place::Alone);
}

ReportWriter::ReportWriter(const std::string& path, std::size_t count, ReportOptions options)
    : path_(path),
      options_(std::move(options)),
      folder_(count != 1 || path.back() == '/' || fs::is_directory(path)) {
    if (folder_) {
        remove_stale_parts_ending(path, ".html");
    } else {
        remove_stale_parts(path);
    }
}

void ReportWriter::add(const FileFacts& facts) {
    // A page that is written whole or not at all: a reader who reloads meets no half of one.
    if (!folder_) {
        return write_whole_text(path_.string(), report_page(facts, options_));
    }
    std::string page;
    if (facts.before) {
        page = page_name(path_, facts, taken_);
        write_whole_text((path_ / page).string(), page_of(facts, options_, Place::InFolder));
    }
    rows_ += index_row(facts, page, options_);
    // Curves are megabytes for a long recording; they are on its page now and in no one's memory.
    FileFacts kept = facts;
    strip_details(kept);
    files_.push_back(std::move(kept));
}

std::string ReportWriter::finish() {
    if (!folder_) {
        return path_.string();
    }
    const fs::path index = path_ / "index.html";
    write_whole_text(index.string(),
                     html_page("Leveling report", index_page(files_, rows_, options_)));
    return index.string();
}

std::string write_report(const std::string& path,
                         const std::vector<FileFacts>& files,
                         const ReportOptions& options) {
    ReportWriter report(path, files.size(), options);
    for (const FileFacts& facts : files) {
        report.add(facts);
    }
    return report.finish();
}

}  // namespace quorvane
