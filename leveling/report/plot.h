#pragma once

#include <string>
#include <vector>

#include "leveling/facts/run_facts.h"
#include "leveling/report/heard.h"

/*
 * The figures are SVG in units of their own, 1000 by 100, stretched to whatever size the page gives
 * them: lines keep their width by the style sheet, and all words stand outside, as HTML at
 * percentages of the drawing, since they would be stretched with it. Colors are classes, so that
 * one drawing serves light, dark and print.
 */

namespace quorvane {

/** The values between two levels, drawn from the bottom (low) to the top (high). */
struct Scale {
    double low;
    double high;
    double step;  // between the lines

    /** Those that get a line and a number, both ends included. */
    std::vector<double> values() const;

    /** In units of the drawing, from its top. */
    double y(double value) const;
};

/** A drawing over the length of one recording. */
class Plot {
  public:
    Plot(double duration_s, Scale scale) : duration_s_(duration_s), scale_(scale) {}

    /** css: the line's class, which gives it its color. */
    std::string curve(const Curve& curve, const char* css) const;

    /** A band from top to bottom for each passage, with its numbers for a mouse that rests there.
     */
    std::string bands(const std::vector<ShownPassage>& passages) const;

    /** Lines at the scale's steps; the one at 0 is stronger where there is an above and below. */
    std::string lines() const;

    /** The waveform with these peaks as an area around the middle, full scale at both edges. */
    std::string wave(const Curve& peaks_dbfs, const char* css) const;

    /** The numbers of the scale, beside the drawing. */
    std::string labels() const;

    const Scale& scale() const { return scale_; }

  private:
    double x(double seconds) const;

    double duration_s_;
    Scale scale_;
};

/** The SVG element around a drawing; description: for those who do not see it. */
std::string svg_html(const std::string& description, const std::string& drawing);

/** Times below a drawing. */
std::string time_axis(double duration_s);

/** An entry of a legend; color is one of the style sheet's names. */
std::string legend_key(const char* color, const std::string& text);

/** The class of a gain in dB: "up", "down" or, where no one would notice it, "none". */
const char* gain_class(double gain_db);

/** Widens the range to the curve's values; silence has none. */
void widen(const Curve& curve, double& low, double& high);

}  // namespace quorvane
