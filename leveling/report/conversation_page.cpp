#include "leveling/report/conversation_page.h"

#include <fmt/format.h>

#include <algorithm>

#include "leveling/advice/finding_words.h"
#include "leveling/publish/verdict.h"
#include "leveling/report/heard.h"
#include "leveling/report/html.h"
#include "leveling/report/page_words.h"
#include "leveling/report/plot.h"
#include "leveling/report/report_chart.h"
#include "leveling/words/levels.h"
#include "leveling/words/text.h"

/*
 * All tracks of a conversation below each other over the same time, so that it is seen who speaks
 * when and what each got. The mix, which is what people will hear, stands on top.
 */

namespace quorvane {
namespace {

bool is_mix(const Lane& lane) {
    return lane.facts.conversation->mix;
}

std::string who_text(const FileFacts& facts) {
    if (facts.conversation->mix) {
        return "the mix of all";
    }
    return facts.conversation->speaks_s > 0
               ? "speaks for " + clock_text(facts.conversation->speaks_s)
               : "does not speak, so it is not raised";
}

std::string levels_text(const Lane& lane) {
    const FileFacts& facts = lane.facts;
    std::string text;
    if (facts.before && facts.after) {
        text = fmt::format("{} → {} LUFS", shown(facts.before->integrated_lufs),
                           shown(facts.after->integrated_lufs));
    } else if (facts.after) {
        text = fmt::format("{} LUFS, true peak {} dBTP", shown(facts.after->integrated_lufs),
                           shown(facts.after->true_peak_dbtp));
    }
    if (facts.leveling) {
        // In all, as the line over the waveform.
        const double added_db = lane.final_level_db;
        const std::string least = signed_decimal(facts.leveling->least_gain_db + added_db);
        const std::string most = signed_decimal(facts.leveling->greatest_gain_db + added_db);
        text += fmt::format("; gain {} dB", least == most ? least : least + " to " + most);
    }
    return text;
}

std::string lane_html(const Lane& lane, const ReportOptions& options) {
    const FileFacts& facts = lane.facts;
    const std::string name = escape_html(is_mix(lane) ? name_of_output(facts) : name_of(facts));
    std::string text = fmt::format(
        "<section class=\"lane\">\n<h2>{} <small>{}</small></h2>\n",
        lane.page.empty() ? name : fmt::format("<a href=\"{}\">{}</a>", link_to(lane.page), name),
        who_text(facts));
    if (is_failure(facts.outcome)) {
        return text + fmt::format("<p class=\"banner\"><b>{}</b>: {}</p>\n</section>\n",
                                  outcome_text(facts), escape_html(facts.cause));
    }
    text += fmt::format("<p class=\"soft\">{}</p>\n", levels_text(lane));
    if (const std::string found = objections_text(facts); !found.empty()) {
        text += fmt::format("<p class=\"found\">{}</p>\n", escape_html(found));
    }
    if (is_mix(lane) && !options.destinations.empty()) {
        text += verdict_html(verdict(facts, options.destinations, Face::Page), options,
                             verdict_color(facts, options));
    }
    return text + lane.plot + "</section>\n";
}

}  // namespace

Lane lane_of(const FileFacts& facts, const std::string& page) {
    Lane lane{facts, page, is_failure(facts.outcome) ? "" : waveform_lane(facts),
              final_level_db(facts)};
    strip_details(lane.facts);
    return lane;
}

std::string conversation_page(const std::vector<Lane>& lanes, const ReportOptions& options) {
    const auto tracks = static_cast<std::size_t>(
        std::count_if(lanes.begin(), lanes.end(), [](const Lane& lane) { return !is_mix(lane); }));
    double duration_s = 0;
    std::string text = fmt::format(
        "<p class=\"back\"><a href=\"index.html\">← All files</a></p>\n<h1>A conversation on {} "
        "tracks</h1>\n<p class=\"soft\">Waveforms after leveling, all over the same time; the line "
        "is the gain in dB. A track is at its level where its owner speaks and lowered where the "
        "others are heard on it.</p>\n<p>{}{}{}</p>\n<div class=\"lanes\">\n",
        tracks, legend_key("ink", "gain"), legend_key("up", "raised against the rest"),
        legend_key("down", "lowered against the rest"));
    for (const bool mix : {true, false}) {
        for (const Lane& lane : lanes) {
            if (is_mix(lane) == mix) {
                text += lane_html(lane, options);
                duration_s = std::max(duration_s, lane.facts.duration_s());
            }
        }
    }
    return text + time_axis(duration_s) + "</div>\n" + footer();
}

}  // namespace quorvane
