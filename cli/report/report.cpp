#include "cli/report/report.h"

#include <fmt/format.h>

#include <boost/algorithm/string/case_conv.hpp>
#include <boost/algorithm/string/join.hpp>
#include <cctype>
#include <cmath>
#include <filesystem>
#include <set>

#include "cli/facts/destinations.h"
#include "cli/report/html.h"
#include "cli/report/report_chart.h"
#include "cli/storage/staged_output.h"
#include "cli/terminal/summary.h"
#include "cli/terminal/terminal_text.h"

namespace cli {
namespace fs = std::filesystem;

namespace {

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

std::string outcome_text(const FileFacts& facts) {
    switch (facts.outcome) {
        case Outcome::Leveled:
            return "leveled";
        case Outcome::Copied:
            return "copied unchanged";
        case Outcome::Analyzed:
            return "measured";
        case Outcome::Skipped:
            return "skipped";
        case Outcome::Failed:
            return "failed";
        case Outcome::Interrupted:
            return "not finished";
    }
    return "";
}

std::string heading(const FileFacts& facts) {
    std::string text = fmt::format("<h1>{}</h1>\n", escape_html(name_of(facts)));
    text += fmt::format("<p class=\"soft\">{}, {} Hz, {}, {}</p>\n", escape_html(facts.format),
                        facts.sample_rate_hz, channels_text(facts.channels),
                        clock_text(facts.duration_s()));
    if (!facts.output.empty() && facts.outcome != Outcome::Failed) {
        text += fmt::format("<p class=\"soft\">Written to {}</p>\n", escape_html(facts.output));
    }
    if (!facts.cause.empty()) {
        text += fmt::format("<p class=\"banner\"><b>{}</b>: {}</p>\n", outcome_text(facts),
                            escape_html(facts.cause));
    }
    for (const std::string& note : facts.notes) {
        text += fmt::format("<p class=\"banner\">{}</p>\n", escape_html(note));
    }
    return text;
}

std::string shown(double value) {
    return std::isfinite(value) ? decimal(value) : "silent";
}

std::string numbers(const FileFacts& facts) {
    struct Row {
        const char* title;
        const char* unit;
        double Loudness::*field;
        const char* meaning;
    };

    static const Row rows[] = {
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
    std::string text = "<h2>Numbers</h2>\n<div class=\"numbers\">\n";
    const auto card = [&](const char* title, const std::string& value, const char* unit,
                          const char* meaning) {
        text += fmt::format(
            "<div class=\"number\"><h3>{}</h3><div class=\"value\">{} "
            "<small>{}</small></div><p>{}</p></div>\n",
            title, value, unit, meaning);
    };
    for (const Row& row : rows) {
        std::string value = shown((*facts.before).*row.field);
        if (facts.after) {
            value = fmt::format("<small>{} →</small> {}", value, shown((*facts.after).*row.field));
        }
        card(row.title, value, row.unit, row.meaning);
    }
    if (facts.leveling) {
        card(
            "Leveling gain",
            fmt::format("{:+.1f} <small>({:+.1f} to {:+.1f})</small>", facts.leveling->mean_gain_db,
                        facts.leveling->least_gain_db, facts.leveling->greatest_gain_db),
            "dB",
            "What leveling added on average (and at least and at most) to bring the passages "
            "together, before the whole got its final level.");
    }
    return text + "</div>\n";
}

std::string destination_row(const FileFacts& facts, const Destination& destination, int channels) {
    const bool applies = destination.mono_target == destination.other_target ||
                         (channels == 1) == (facts.channels == 1);
    std::string name = escape_html(destination.name);
    if (destination.mono_target != destination.other_target) {
        name += channels == 1 ? ", mono" : ", stereo";
    }
    std::string result;
    if (!applies) {
        result = fmt::format("this file is {}", channels_text(facts.channels));
    } else if (const DestinationCheck check = check_destination(
                   destination, facts.after ? *facts.after : *facts.before, facts.channels);
               check.met()) {
        result = "<span class=\"met\">✓ ready</span>";
    } else {
        result = fmt::format(
            "<span class=\"off\">✗ not yet:</span> {} <span class=\"remedy\">→ "
            "<code>--for {}</code></span>",
            check.words(), destination.word);
    }
    return fmt::format("<tr{}><th scope=\"row\">{}</th><td>{}</td><td>{}</td></tr>\n",
                       applies ? "" : " class=\"elsewhere\"", name, destination.asks(channels),
                       result);
}

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

std::string passages(const FileFacts& facts) {
    if (!facts.leveling || facts.leveling->passages.empty()) {
        return "";
    }
    const auto& rows = facts.leveling->passages;
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
        "<h2>{}</h2>\n<p class=\"soft\">Each gets the gain that brings it to the average of all; "
        "the level is measured on the cleaned sound, without pauses.</p>\n{}",
        title, table);
}

std::string footer() {
    return "<footer>Loudness after ITU-R BS.1770 and EBU R 128. Written by quorvane.</footer>\n";
}

/** A name for the page in the report's folder that needs no escaping in a link, each once. */
std::string page_name(const FileFacts& facts, std::set<std::string>& taken) {
    std::string base = name_of(facts);
    for (char& c : base) {
        if (!isalnum(static_cast<unsigned char>(c)) && c != '.' && c != '-') {
            c = '_';
        }
    }
    std::string name = base + ".html";
    for (int n = 2; !taken.insert(boost::to_lower_copy(name)).second; ++n) {
        name = fmt::format("{}-{}.html", base, n);
    }
    return name;
}

std::string index_row(const FileFacts& facts, const std::string& page) {
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
    const bool fine = facts.outcome == Outcome::Leveled || facts.outcome == Outcome::Analyzed;
    std::string result = fmt::format("<span class=\"{}\">{}</span>",
                                     fine                               ? "met"
                                     : facts.outcome == Outcome::Failed ? "off"
                                                                        : "soft",
                                     outcome_text(facts));
    if (!facts.cause.empty()) {
        result += fmt::format("<br><span class=\"soft\">{}</span>", escape_html(facts.cause));
    }
    std::string row =
        fmt::format("<tr><td>{}</td><td>{}</td>",
                    page.empty() ? name : fmt::format("<a href=\"{}\">{}</a>", page, name), result);
    const auto cell = [&](const char* label, const std::string& value, const char* unit) {
        row += value.empty() ? std::string("<td class=\"n\"></td>")
                             : fmt::format("<td class=\"n\" data-label=\"{}\">{} {}</td>", label,
                                           value, unit);
    };
    cell("Loudness", both(&Loudness::integrated_lufs), "LUFS");
    cell("Range", both(&Loudness::range_lu), "LU");
    cell("True peak", both(&Loudness::true_peak_dbtp), "dBTP");
    cell("Leveling gain",
         facts.leveling
             ? fmt::format("{:+.1f} ({:+.1f} to {:+.1f})", facts.leveling->mean_gain_db,
                           facts.leveling->least_gain_db, facts.leveling->greatest_gain_db)
             : std::string(),
         "dB");
    return row + "</tr>\n";
}

void write_folder(const fs::path& folder, const std::vector<FileFacts>& files) {
    std::set<std::string> taken = {"index.html"};
    std::string rows;
    for (const FileFacts& facts : files) {
        std::string page;
        if (facts.before) {
            page = page_name(facts, taken);
            write_whole_text((folder / page).string(), report_page(facts));
        }
        rows += index_row(facts, page);
    }
    const std::string body = fmt::format(
        "<h1>{} files</h1>\n<p class=\"soft\">Each number before and after; each name leads to the "
        "file's own page.</p>\n<table class=\"stack files\">\n<thead><tr><th>File</th><th>Result"
        "</th><th class=\"n\">Loudness</th><th class=\"n\">Range</th><th class=\"n\">True peak</th>"
        "<th class=\"n\">Leveling gain</th></tr></thead>\n<tbody>\n{}</tbody>\n</table>\n{}",
        files.size(), rows, footer());
    write_whole_text((folder / "index.html").string(), html_page("Leveling report", body));
}

}  // namespace

std::string report_page(const FileFacts& facts) {
    std::string body = heading(facts);
    if (facts.before) {
        if (facts.duration_s() > 0) {
            body += "<h2>Over time</h2>\n" + loudness_figure(facts);
        }
        body += gain_figure(facts) + numbers(facts) + destinations_table(facts) + passages(facts);
    }
    return html_page(name_of(facts), body + footer());
}

std::string write_report(const std::string& path, const std::vector<FileFacts>& files) {
    if (files.size() == 1 && path.back() != '/' && !fs::is_directory(path)) {
        write_whole_text(path, report_page(files.front()));
        return path;
    }
    write_folder(path, files);
    return (fs::path(path) / "index.html").string();
}

}  // namespace cli
