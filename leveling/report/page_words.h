#pragma once

#include <string>

#include "leveling/facts/run_facts.h"
#include "leveling/report/report.h"

/** What a file's page and the index share. */

namespace quorvane {

/** The recording's name without its folders. */
std::string name_of(const FileFacts& facts);

/** The output's name without its folders. */
std::string name_of_output(const FileFacts& facts);

/** The name as a relative link: all but the plainest bytes as %XX. */
std::string link_to(const std::string& name);

/** As a reader would say it; the words of the JSON are for programs. */
std::string outcome_text(const FileFacts& facts);

/** How a file stands to the places that were asked for. */
enum class VerdictColor { Ready, ReadyBut, NotReady };

/** The worst one comes last. */
VerdictColor verdict_color(const FileFacts& facts, const ReportOptions& options);

/** The sentence that comes first, colored where places were asked for. */
std::string verdict_html(const std::string& text, const ReportOptions& options, VerdictColor color);

/** A level with one decimal. What has none is told in a word instead of an infinity. */
std::string shown(double value);

/**
 * The level of a measured file, after a small one of what it was before leveling. A dash where it
 * was too short or too quiet to have a loudness.
 */
std::string level_html(const FileFacts& facts, double Loudness::*field);

/** Which norms the numbers follow, and which version wrote them, for who compares later. */
std::string footer();

}  // namespace quorvane
