#include "leveling/report/report_chart.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <optional>
#include <string>

#include "leveling/report/heard.h"
#include "leveling/report/html.h"
#include "leveling/report/marks.h"
#include "leveling/report/plot.h"
#include "leveling/words/levels.h"

namespace quorvane {
namespace {

constexpr double kQuietestShown = -60;  // LUFS

/** Full scale at both edges; a line at half of it, -6 dBFS. */
constexpr Scale kWaveScale = {-1, 1, 0.5};

/** The same above and below: zero stands in the middle, and a quiet file looks quiet. */
Scale gain_scale(const Curve& gain) {
    // dB; the scale grows in steps of it.
    constexpr double kLeastReach = 6;
    double low = 0;
    double high = 0;
    widen(gain, low, high);
    const double reach =
        std::max(kLeastReach, std::ceil(std::max(-low, high) / kLeastReach) * kLeastReach);
    return {-reach, reach, reach};
}

/** Numbers of the waveform's scale, to the left; below the middle they are the same. */
std::string wave_labels() {
    std::string labels;
    const Plot plot(1, kWaveScale);
    for (const double amplitude : {1.0, 0.5, 0.0}) {
        const std::string level =
            amplitude == 0 ? "-∞" : fmt::format("{}", std::lround(20 * std::log10(amplitude)));
        labels += fmt::format("<span class=\"y\" style=\"top:{:.2f}%\">{}</span>\n",
                              plot.scale().y(amplitude), level);
    }
    return labels;
}

/** Numbers of the gain's scale, to the right. */
std::string gain_labels(const Scale& scale) {
    std::string labels;
    for (const double value : scale.values()) {
        labels += fmt::format("<span class=\"y right\" style=\"top:{:.2f}%\">{}</span>\n",
                              scale.y(value), value == 0 ? "0" : fmt::format("{:+g}", value));
    }
    return labels;
}

/** One waveform with the passages behind it, and the gain over it where there is one. */
std::string wave_panel(const FileFacts& facts,
                       const Loudness& loudness,
                       const char* name,
                       const Curve& gain) {
    const Plot plot(facts.duration_s(), kWaveScale);
    // Classes of the drawing: b is before leveling, a after it.
    std::string drawing = plot.bands(shown_passages(facts)) + plot.lines() +
                          plot.wave(loudness.peaks_dbfs, &loudness == &*facts.before ? "b" : "a");
    std::string labels = wave_labels();
    if (!gain.values.empty()) {
        const Scale scale = gain_scale(gain);
        drawing += Plot(facts.duration_s(), scale).curve(gain, "g");
        labels += gain_labels(scale);
    }
    return fmt::format("<div class=\"plot\">\n{}{}<span class=\"panel\">{}</span></div>\n",
                       svg_html(fmt::format("Waveform: {}", name), drawing), labels, name);
}

/** Where the player shows its excerpts and its place, over the drawings of one figure. */
std::string cursor_layer(const FileFacts& facts) {
    return fmt::format("<div class=\"over\" data-length=\"{:.2f}\"></div>\n", facts.duration_s());
}

/** Of a measured file with a length. */
bool has_waveform(const FileFacts& facts) {
    return facts.before && !facts.before->peaks_dbfs.values.empty() && facts.duration_s() > 0;
}

}  // namespace

// In dB: what each moment got in all.
Curve total_gain(const FileFacts& facts) {
    if (!facts.leveling) {
        return {};
    }
    Curve gain = facts.leveling->gain_db;
    const double final_level = final_level_db(facts);
    for (double& value : gain.values) {
        value += final_level;
    }
    return gain;
}

std::string waveform_figure(const FileFacts& facts) {
    if (!has_waveform(facts)) {
        return "";
    }
    // Only a leveled file has another waveform afterwards.
    const bool has_after =
        facts.after && !facts.after->peaks_dbfs.values.empty() && facts.outcome == Outcome::Leveled;
    const Curve gain = has_after ? total_gain(facts) : Curve{};
    std::string caption = "Waveform in dBFS";
    if (!gain.values.empty()) {
        caption += fmt::format(
            "; over it the gain in dB on the right, with the {} dB that gave the whole its final "
            "level.<br>\n{}{}{}",
            signed_decimal(final_level_db(facts)), legend_key("ink", "gain"),
            legend_key("up", "raised against the rest"),
            legend_key("down", "lowered against the rest"));
    } else {
        caption += ".";
    }
    std::string panels = wave_panel(facts, *facts.before, has_after ? "Before" : "Measured", gain);
    if (has_after) {
        panels += wave_panel(facts, *facts.after, "After", {});
    }
    return fmt::format(
        "<figure class=\"waveform\">\n<figcaption>{}</figcaption>\n<div class=\"waves\">\n{}{}{}"
        "</div>\n{}</figure>\n",
        caption, pins(facts), panels, cursor_layer(facts), time_axis(facts.duration_s()));
}

std::string waveform_lane(const FileFacts& facts) {
    const std::optional<Loudness>& shown = facts.after ? facts.after : facts.before;
    if (!shown || shown->peaks_dbfs.values.empty() || facts.duration_s() <= 0) {
        return "";
    }
    const Plot plot(facts.duration_s(), kWaveScale);
    std::string drawing =
        plot.bands(shown_passages(facts)) + plot.lines() + plot.wave(shown->peaks_dbfs, "a");
    std::string labels;
    if (const Curve gain = total_gain(facts); !gain.values.empty()) {
        const Scale scale = gain_scale(gain);
        drawing += Plot(facts.duration_s(), scale).curve(gain, "g");
        labels = gain_labels(scale);
    }
    return fmt::format("<div class=\"plot\">\n{}{}</div>\n",
                       svg_html("Waveform after leveling", drawing), labels);
}

std::string loudness_figure(const FileFacts& facts) {
    // LU from line to line.
    constexpr double kStep = 10;
    // The usual level of speech is always in the picture, so that pages can be compared.
    double low = -20;
    double high = -20;
    if (facts.before) {
        widen(facts.before->short_term_lufs, low, high);
    }
    if (facts.after) {
        widen(facts.after->short_term_lufs, low, high);
    }
    // What is softer is cut off, as silence would press the rest together.
    low = std::max(std::floor(low / kStep) * kStep, kQuietestShown);
    high = std::max(std::ceil(high / kStep) * kStep, low + kStep);
    const Plot plot(facts.duration_s(), {low, high, kStep});
    std::string drawing = plot.bands(shown_passages(facts)) + plot.lines();
    std::string caption = "Loudness in LUFS, over windows of 3 s.<br>\n";
    if (facts.before) {
        drawing += plot.curve(facts.before->short_term_lufs, "b");
        caption += legend_key("before", facts.after ? "before" : "measured");
    }
    if (facts.after) {
        drawing += plot.curve(facts.after->short_term_lufs, "a");
        caption += legend_key("after", "after");
    }
    return fmt::format(
        "<figure class=\"loudness\">\n<figcaption>{}</figcaption>\n<div class=\"waves\">\n<div "
        "class=\"plot\">\n{}{}</div>\n{}</div>\n{}</figure>\n",
        caption, svg_html("Loudness over time before and after", drawing), plot.labels(),
        cursor_layer(facts), time_axis(facts.duration_s()));
}

}  // namespace quorvane
