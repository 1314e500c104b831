#include "leveling/report/page.h"

#include <fmt/format.h>

#include <algorithm>

#include "leveling/advice/advice_table.h"
#include "leveling/advice/finding_words.h"
#include "leveling/facts/destinations.h"
#include "leveling/facts/finding_json.h"
#include "leveling/facts/preparation_words.h"
#include "leveling/publish/verdict.h"
#include "leveling/report/heard.h"
#include "leveling/report/html.h"
#include "leveling/report/listen.h"
#include "leveling/report/marks.h"
#include "leveling/report/page_words.h"
#include "leveling/report/plot.h"
#include "leveling/report/report_chart.h"
#include "leveling/words/levels.h"
#include "leveling/words/text.h"

/*
 * From top to bottom a page answers what is asked in that order: is it good, what was found, what
 * does it sound like, what was done over time, where may it go, the numbers with what they mean,
 * and the passages. Every name and every cause comes from outside and is escaped where it is put
 * in; all other texts are ours.
 */

namespace quorvane {
namespace {

constexpr std::size_t kMostOpenRows = 40;  // a longer table of passages is folded

std::string channels_text(int channels) {
    if (channels == 1) {
        return "mono";
    }
    if (channels == 2) {
        return "stereo";
    }
    return fmt::format("{} channels", channels);
}

/** Name, verdict, what kind of file it is, where it went, and whatever went wrong or was odd. */
std::string heading(const FileFacts& facts, const ReportOptions& options) {
    std::string text = fmt::format("<h1>{}</h1>\n", escape_html(name_of(facts)));
    text += verdict_html(verdict(facts, options.destinations, Face::Page), options,
                         verdict_color(facts, options));
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
    // The notes of a track repeat what its verdict says.
    for (const std::string& note : facts.conversation ? std::vector<std::string>() : facts.notes) {
        text += fmt::format("<p class=\"banner\">{}</p>\n", escape_html(note));
    }
    if (facts.preparation) {
        std::string done;
        for (const std::string& words : words_of(*facts.preparation, Phrasing::Everything)) {
            done += (done.empty() ? "" : "; ") + words;
        }
        text +=
            done.empty() ? "" : fmt::format("<p class=\"soft\">Done: {}.</p>\n", escape_html(done));
    }
    return text;
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
     "The level of the quietest half second: what is heard when no one speaks."},
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

/** Of a measured file; with an "after" each number is shown next to the old one. */
std::string numbers(const FileFacts& facts) {
    std::string text = "<h2>Numbers</h2>\n<div class=\"numbers\">\n";
    for (const Figure& figure : kFigures) {
        text += card(figure.title, level_html(facts, figure.field), figure.unit, figure.meaning);
    }
    if (facts.leveling) {
        const Leveling& gain = *facts.leveling;
        text += card(
            "Leveling gain",
            fmt::format("{} <small>({} to {})</small>", signed_decimal(gain.mean_gain_db),
                        signed_decimal(gain.least_gain_db), signed_decimal(gain.greatest_gain_db)),
            "dB",
            "What leveling added on average (and at least and at most) to bring the "
            "passages together, before the whole got its final level.");
    }
    return text + "</div>\n";
}

/** Met or not, what is missing, and beside it how to fix that. */
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

/** channels, 1 or 2: which of two targets the row is about. */
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

/** The rows of one destination: two where mono and stereo have different targets. */
std::string destination_rows(const FileFacts& facts, const Destination& destination) {
    if (destination.mono_target == destination.other_target) {
        return destination_row(facts, destination, facts.channels);
    }
    return destination_row(facts, destination, 2) + destination_row(facts, destination, 1);
}

/** rows: HTML that was escaped already. */
std::string destination_table(const std::string& rows) {
    return "<table class=\"stack destinations\">\n<thead><tr><th scope=\"col\">Where</th>"
           "<th scope=\"col\">Asks for</th><th scope=\"col\">This file</th></tr></thead>\n"
           "<tbody>\n" +
           rows + "</tbody>\n</table>\n";
}

/** The places that were asked for; all others are folded away. */
std::string destination_part(const FileFacts& facts, const ReportOptions& options) {
    std::string asked;
    // One row each: a place that was named is judged for this file's channels.
    for (const std::string& word : options.destinations) {
        asked += destination_row(facts, *find_destination(word), facts.channels);
    }
    std::string others;
    for (const Destination& destination : destinations()) {
        const auto& words = options.destinations;
        if (std::find(words.begin(), words.end(), destination.word) == words.end()) {
            others += destination_rows(facts, destination);
        }
    }
    std::string text = "<h2>Where it may go</h2>\n";
    text += asked.empty() ? "" : destination_table(asked);
    if (!others.empty()) {
        text += fmt::format("<details><summary>{} places</summary>\n{}</details>\n",
                            asked.empty() ? "What it is for" : "Other", destination_table(others));
    }
    return text;
}

/** What was found, the gravest first, and what to do about it. */
std::string findings_part(const FileFacts& facts) {
    if (facts.findings.empty()) {
        return "";
    }
    std::string list;
    // By weight, and in the order in which they were found.
    for (const Severity severity : {Severity::Problem, Severity::Warning, Severity::Note}) {
        for (const Finding& finding : facts.findings) {
            if (finding.severity != severity) {
                continue;
            }
            // Null for a code of a later version, which then has its sentence alone.
            const Advice* advice = find_advice(finding.code);
            const std::string now = advice_of(finding, Face::Page);
            list += fmt::format("<li class=\"{}\"><p><b>{}</b> {}</p>\n", to_text(severity),
                                to_text(severity), escape_html(sentence_of(finding)));
            list += place_marks(finding);
            if (advice) {
                list += fmt::format(
                    "<p class=\"soft\">{}{}{} Next time: {}</p>\n", escape_html(advice->why),
                    now.empty() ? "" : " Now: ", escape_html(now), escape_html(advice->next_time));
            }
            list += "</li>\n";
        }
    }
    return "<h2>What was found</h2>\n<ul class=\"findings\">\n" + list + "</ul>\n";
}

/** The passages as they are heard, with the gain that each got in the end. */
std::string passages(const FileFacts& facts) {
    const std::vector<ShownPassage> rows = shown_passages(facts);
    if (rows.empty()) {
        return "";
    }
    // Gains and levels with a sign or one decimal; times as on a clock.
    std::string table =
        "<table class=\"passages\">\n<thead><tr><th scope=\"col\">From</th><th scope=\"col\">To"
        "</th><th scope=\"col\" class=\"n\">Before <small>LUFS</small></th><th scope=\"col\" "
        "class=\"n\">After <small>LUFS</small></th><th scope=\"col\" class=\"n\">Gain <small>dB"
        "</small></th><th scope=\"col\" class=\"n\">Against the rest <small>dB</small></th></tr>"
        "</thead>\n<tbody>\n";
    for (const ShownPassage& passage : rows) {
        table += fmt::format(
            "<tr><td><span class=\"swatch {}\"></span>{}</td><td>{}</td><td class=\"n\">{}</td>"
            "<td class=\"n\">{}</td><td class=\"n\">{}</td><td class=\"n\">{}</td></tr>\n",
            gain_class(passage.against_db), clock_text(passage.from_s), clock_text(passage.to_s),
            shown(passage.before_lufs), shown(passage.after_lufs), signed_decimal(passage.gain_db),
            signed_decimal(passage.against_db));
    }
    table += "</tbody>\n</table>\n";
    const std::string title =
        rows.size() == 1 ? std::string("1 passage") : fmt::format("{} passages", rows.size());
    if (rows.size() > kMostOpenRows) {
        table = fmt::format("<details><summary>Show all {}</summary>\n{}</details>\n", rows.size(),
                            table);
    }
    return fmt::format(
        "<h2>{}</h2>\n<p class=\"soft\">Each gets the gain that brings it to the level of all. "
        "Levels are loudness without pauses; the last column is what a passage got beyond the mean "
        "gain of all.</p>\n{}",
        title, table);
}

}  // namespace

std::string page_of(const FileFacts& facts, const ReportOptions& options, Place place) {
    // A page that stands alone has no list to go back to.
    std::string body = place == Place::InFolder
                           ? "<p class=\"back\"><a href=\"index.html\">← All files</a></p>\n"
                           : "";
    std::string script;
    body += heading(facts, options) + findings_part(facts);
    // Without a measurement the page ends with what was found.
    if (facts.before) {
        const std::string listening =
            options.listening_part ? options.listening_part(facts) : std::string();
        // Only the player needs the script.
        script = listening.empty() ? "" : listening_script();
        body += listening;
        // A file without a length has no time axis.
        if (facts.duration_s() > 0) {
            body += "<h2>Over time</h2>\n" + waveform_figure(facts) + loudness_figure(facts);
        }
        body += destination_part(facts, options) + numbers(facts) + passages(facts);
    }
    return html_page(name_of(facts), body + footer() + script);
}

}  // namespace quorvane
