#pragma once

#include <string>

namespace quorvane {

/**
 * The text with & < > " ' as entities and control characters shown, so that a file name is only
 * text.
 */
std::string escape_html(const std::string& text);

/** A whole page: head with the reports' style, and the body given. */
std::string html_page(const std::string& title, const std::string& body);

/** What every page begins with. */
constexpr const char* kReportStart = "<!DOCTYPE html>\n<!-- quorvane report -->";

}  // namespace quorvane
