#include "leveling/report/report_chart.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "leveling/report/heard.h"
#include "leveling/words/levels.h"
#include "leveling/words/text.h"

/*
 * The figures are SVG in units of their own, 1000 by 100, stretched to whatever size the page gives
 * them: lines keep their width by the style sheet, and all words stand outside, as HTML at
 * percentages of the drawing, since they would be stretched with it. Colors are classes, so that
 * one drawing serves light, dark and print.
 */

namespace quorvane {
namespace {

constexpr double kWidth = 1000;  // the drawings' own units
constexpr double kHeight = 100;
constexpr double kQuietestShown = -60;  // LUFS
constexpr double kUnnoticedGain = 0.5;  // dB

/** The values between two levels, drawn from the bottom (low) to the top (high). */
struct Scale {
    double low;
    double high;
    double step;  // between the lines

    /** Those that get a line and a number, both ends included. */
    std::vector<double> values() const {
        std::vector<double> result;
        const long count = std::lround((high - low) / step);
        for (long i = 0; i <= count; ++i) {
            result.push_back(low + static_cast<double>(i) * step);
        }
        return result;
    }

    double y(double value) const {
        return kHeight * (high - std::clamp(value, low, high)) / (high - low);
    }
};

/** A drawing over the length of one recording. */
class Plot {
  public:
    Plot(const FileFacts& facts, Scale scale) : facts_(facts), scale_(scale) {}

    /** css: the line's class, which gives it its color. */
    std::string curve(const Curve& curve, const char* css) const {
        std::string path;
        bool drawing = false;
        for (std::size_t i = 0; i < curve.values.size(); ++i) {
            const double value = curve.values[i];
            // Silence has no level: the curve breaks off and starts again after it.
            if (!std::isfinite(value)) {
                drawing = false;
                continue;
            }
            path += fmt::format("{}{:.1f} {:.2f}", drawing ? "L" : "M",
                                x(static_cast<double>(i) * curve.step_s), scale_.y(value));
            drawing = true;
        }
        return fmt::format("<path class=\"{}\" d=\"{}\"/>\n", css, path);
    }

    /**
     * A band from top to bottom for each passage, with its numbers for a mouse that rests there.
     */
    std::string passages() const {
        std::string spans;
        const std::vector<Passage> heard = heard_passages(facts_);
        const double mean_db = mean_gain_db(heard);
        for (const Passage& passage : heard) {
            // Against the rest, not by the constant gain of all: stronger color for more, full at
            // 12 dB.
            const double against_db = passage.gain_db - mean_db;
            const double strength = std::min(std::fabs(against_db) / 12, 1.0);
            spans += fmt::format(
                "<rect class=\"{}\" x=\"{:.1f}\" y=\"0\" width=\"{:.1f}\" height=\"{}\" "
                "opacity=\"{:.2f}\"><title>{} to {}: level {} dBFS, gain {:+.1f} dB, against the "
                "rest {:+.1f} dB</title></rect>\n",
                gain_class(against_db), x(passage.from_s),
                // A gap between neighbours of the same color, but never nothing at all.
                std::max(x(passage.to_s) - x(passage.from_s) - 1, 0.5), kHeight,
                0.12 + 0.38 * strength, clock_text(passage.from_s), clock_text(passage.to_s),
                decimal(passage.level_db), passage.gain_db, against_db + 0.0);
        }
        return spans;
    }

    /**
     * Level lines at the scale's steps; the one at 0 is stronger where there is an above and below.
     */
    std::string lines() const {
        std::string result;
        for (const double value : scale_.values()) {
            result +=
                fmt::format("<line class=\"{}\" x1=\"0\" x2=\"{}\" y1=\"{:.2f}\" y2=\"{:.2f}\"/>\n",
                            value == 0 && scale_.low < 0 && scale_.high > 0 ? "zero" : "level",
                            kWidth, scale_.y(value), scale_.y(value));
        }
        return result;
    }

    /**
     * The drawing with its numbers beside it, the times below and a caption, which may hold markup.
     */
    std::string figure(const char* css,
                       const std::string& description,
                       const std::string& caption,
                       const std::string& drawing) const {
        std::string labels;
        for (const double value : scale_.values()) {
            labels += fmt::format("<span class=\"y\" style=\"top:{:.2f}%\">{:g}</span>\n",
                                  scale_.y(value) / kHeight * 100, value);
        }
        constexpr int kTimes = 5;
        std::string times;
        for (int i = 0; i < kTimes; ++i) {
            times += fmt::format("<span style=\"left:{}%\">{}</span>\n", 100 * i / (kTimes - 1),
                                 clock_text(facts_.duration_s() * i / (kTimes - 1)));
        }
        return fmt::format(
            "<figure class=\"{}\">\n<figcaption>{}</figcaption>\n<div class=\"plot\">\n"
            "<svg viewBox=\"0 0 {} {}\" preserveAspectRatio=\"none\" role=\"img\" "
            "aria-label=\"{}\">\n{}</svg>\n{}</div>\n<div class=\"times\">\n{}</div>\n</figure>\n",
            css, caption, kWidth, kHeight, description, drawing, labels, times);
    }

  private:
    double x(double seconds) const { return kWidth * seconds / facts_.duration_s(); }

    const FileFacts& facts_;
    Scale scale_;
};

/** An entry of the legend; color is one of the style sheet's names. */
std::string key(const char* color, const char* text) {
    return fmt::format("<span class=\"key\"><i style=\"background:var(--{})\"></i>{}</span>\n",
                       color, text);
}

/** Takes the curve's values into the range; silence has none. */
void widen(const Curve& curve, double& low, double& high) {
    for (double value : curve.values) {
        if (!std::isfinite(value)) {
            continue;
        }
        low = std::min(low, value);
        high = std::max(high, value);
    }
}

}  // namespace

const char* gain_class(double gain_db) {
    if (gain_db >= kUnnoticedGain) {
        return "up";
    }
    if (gain_db <= -kUnnoticedGain) {
        return "down";
    }
    return "none";
}

std::string loudness_figure(const FileFacts& facts) {
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
    low = std::max(std::floor(low / kStep) * kStep, kQuietestShown);
    high = std::max(std::ceil(high / kStep) * kStep, low + kStep);
    const Plot plot(facts, {low, high, kStep});
    std::string drawing = plot.passages() + plot.lines();
    std::string caption = "Loudness over time in LUFS, over windows of 3 s.<br>\n";
    if (facts.before) {
        drawing += plot.curve(facts.before->short_term_lufs, "b");
        caption += key("before", facts.after ? "before" : "measured");
    }
    if (facts.after) {
        drawing += plot.curve(facts.after->short_term_lufs, "a");
        caption += key("after", "after");
    }
    if (facts.leveling) {
        caption += key("up", "raised against the rest") + key("down", "lowered against the rest");
    }
    return plot.figure("loudness", "Loudness over time before and after", caption, drawing);
}

std::string gain_figure(const FileFacts& facts) {
    constexpr double kLeastReach = 6;
    if (!facts.leveling) {
        return "";
    }
    Curve gain = facts.leveling->gain_db;
    const double final_level = final_level_db(facts);
    for (double& value : gain.values) {
        value += final_level;
    }
    double low = 0;
    double high = 0;
    widen(gain, low, high);
    // The same above and below: zero stands in the middle, and a quiet file looks quiet.
    const double reach =
        std::max(kLeastReach, std::ceil(std::max(-low, high) / kLeastReach) * kLeastReach);
    const Plot plot(facts, {-reach, reach, reach / 2});
    return plot.figure(
        "gain", "Gain over time",
        fmt::format("How much louder (above 0) or softer (below 0) each moment became, in dB: the "
                    "leveling gain and the {:+.1f} dB that gave the whole its final level.",
                    final_level),
        plot.passages() + plot.lines() + plot.curve(gain, "g"));
}

}  // namespace quorvane
