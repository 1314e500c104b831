#include "leveling/report/plot.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "leveling/words/levels.h"
#include "leveling/words/text.h"

namespace quorvane {
namespace {

constexpr double kWidth = 1000;  // the drawings' own units
constexpr double kHeight = 100;
constexpr double kUnnoticedGain = 0.5;  // dB
constexpr double kFullColor_db = 12;    // against the rest
constexpr double kLeastWave = 0.4;      // half the height of a line that can be seen
constexpr double kFaintest = 0.12;      // opacity of a band
constexpr double kStrongest = 0.5;

}  // namespace

std::vector<double> Scale::values() const {
    std::vector<double> result;
    const long count = std::lround((high - low) / step);
    for (long i = 0; i <= count; ++i) {
        result.push_back(low + static_cast<double>(i) * step);
    }
    return result;
}

double Scale::y(double value) const {
    return kHeight * (high - std::clamp(value, low, high)) / (high - low);
}

double Plot::x(double seconds) const {
    return kWidth * std::clamp(seconds / duration_s_, 0.0, 1.0);
}

std::string Plot::curve(const Curve& curve, const char* css) const {
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

std::string Plot::bands(const std::vector<ShownPassage>& passages) const {
    std::string spans;
    for (const ShownPassage& passage : passages) {
        // Against the rest, not by the constant gain of all: stronger color for more.
        const double strength = std::min(std::fabs(passage.against_db) / kFullColor_db, 1.0);
        const std::string level =
            std::isfinite(passage.before_lufs)
                ? fmt::format("{} LUFS before, ", decimal(passage.before_lufs))
                : std::string();
        spans += fmt::format(
            "<rect class=\"{}\" x=\"{:.1f}\" y=\"0\" width=\"{:.1f}\" height=\"{}\" "
            "opacity=\"{:.2f}\"><title>{} to {}: {}gain {} dB, against the rest {} dB</title>"
            "</rect>\n",
            gain_class(passage.against_db), x(passage.from_s),
            // A gap between neighbours of the same color, but never nothing at all.
            std::max(x(passage.to_s) - x(passage.from_s) - 1, 0.5), kHeight,
            kFaintest + (kStrongest - kFaintest) * strength, clock_text(passage.from_s),
            clock_text(passage.to_s), level, signed_decimal(passage.gain_db),
            signed_decimal(passage.against_db));
    }
    return spans;
}

std::string Plot::lines() const {
    std::string result;
    for (const double value : scale_.values()) {
        result +=
            fmt::format("<line class=\"{}\" x1=\"0\" x2=\"{}\" y1=\"{:.2f}\" y2=\"{:.2f}\"/>\n",
                        value == 0 && scale_.low < 0 && scale_.high > 0 ? "zero" : "level", kWidth,
                        scale_.y(value), scale_.y(value));
    }
    return result;
}

std::string Plot::wave(const Curve& peaks_dbfs, const char* css) const {
    std::string path;
    constexpr double kMiddle = kHeight / 2;
    const auto& peaks = peaks_dbfs.values;
    const auto add = [&](std::size_t i, double side) {
        // Silence, minus infinity, becomes an amplitude of 0.
        const double amplitude = std::min(std::pow(10, peaks[i] / 20), 1.0);
        path += fmt::format("{}{:.1f} {:.1f}", path.empty() ? "M" : "L",
                            x((static_cast<double>(i) + 0.5) * peaks_dbfs.step_s),
                            kMiddle + side * std::max(kMiddle * amplitude, kLeastWave));
    };
    for (std::size_t i = 0; i < peaks.size(); ++i) {
        add(i, -1);
    }
    for (std::size_t i = peaks.size(); i-- > 0;) {
        add(i, 1);
    }
    return fmt::format("<path class=\"wave {}\" d=\"{}Z\"/>\n", css, path);
}

std::string Plot::labels() const {
    std::string labels;
    for (const double value : scale_.values()) {
        labels += fmt::format("<span class=\"y\" style=\"top:{:.2f}%\">{:g}</span>\n",
                              scale_.y(value) / kHeight * 100, value);
    }
    return labels;
}

std::string svg_html(const std::string& description, const std::string& drawing) {
    return fmt::format(
        "<svg viewBox=\"0 0 {} {}\" preserveAspectRatio=\"none\" role=\"img\" "
        "aria-label=\"{}\">\n{}</svg>\n",
        kWidth, kHeight, description, drawing);
}

std::string time_axis(double duration_s) {
    constexpr int kTimes = 5;
    std::string times;
    for (int i = 0; i < kTimes; ++i) {
        times += fmt::format("<span style=\"left:{}%\">{}</span>\n", 100 * i / (kTimes - 1),
                             clock_text(duration_s * i / (kTimes - 1)));
    }
    return "<div class=\"times\">\n" + times + "</div>\n";
}

std::string legend_key(const char* color, const std::string& text) {
    return fmt::format("<span class=\"key\"><i style=\"background:var(--{})\"></i>{}</span>\n",
                       color, text);
}

const char* gain_class(double gain_db) {
    if (gain_db >= kUnnoticedGain) {
        return "up";
    }
    if (gain_db <= -kUnnoticedGain) {
        return "down";
    }
    return "none";
}

void widen(const Curve& curve, double& low, double& high) {
    for (double value : curve.values) {
        if (!std::isfinite(value)) {
            continue;
        }
        low = std::min(low, value);
        high = std::max(high, value);
    }
}

}  // namespace quorvane
