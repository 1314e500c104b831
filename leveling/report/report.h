#pragma once

#include <filesystem>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "leveling/facts/facts_list.h"
#include "leveling/facts/run_facts.h"

namespace quorvane {

/** What a report shows beyond the facts. */
struct ReportOptions {
    std::vector<std::string> destinations;  // words of --for that were asked for
    // Gives the part of a page with excerpts to listen to, "" for none; null: no page has one.
    std::function<std::string(const FileFacts&)> listening_part = nullptr;
};

struct Lane;

/** A row of the index as HTML; rows of a lower rank stand above. */
struct IndexRow {
    int rank = 0;
    std::string html;
};

/**
 * Writes the report of a run, file by file: for one file a page at the path (or in it, if it is a
 * folder), for several a folder with a page for each measured file and index.html. All throw
 * std::system_error.
 */
class ReportWriter {
  public:
    /** count: how many files there will be. */
    ReportWriter(const std::string& path, std::size_t count, ReportOptions options = {});
    ~ReportWriter();
    ReportWriter(const ReportWriter&) = delete;
    ReportWriter& operator=(const ReportWriter&) = delete;

    /** The next file: its page, where it was measured, and its row of the index. */
    void add(const FileFacts& facts);

    /** Writes index.html. Returns the path of the page to open first. */
    std::string finish();

  private:
    std::filesystem::path path_;
    ReportOptions options_;
    bool folder_;
    std::vector<std::string> write_conversations();

    std::set<std::string> taken_ = {"index.html", "conversation.html"};  // pages, lower case
    std::vector<IndexRow> rows_;
    std::map<std::string, std::vector<Lane>> lanes_;  // of each conversation, by its first track
    FactsList files_;  // for the verdict, without curves and passages
};

/** The same of a run whose facts are all there. Returns the path of the page to open first. */
std::string write_report(const std::string& path,
                         const std::vector<FileFacts>& files,
                         const ReportOptions& options = {});

/**
 * The page about one file: self-contained HTML that loads nothing, below 1 MB whatever the length.
 * Only a page with excerpts has a script, the switch between them.
 */
std::string report_page(const FileFacts& facts, const ReportOptions& options = {});

}  // namespace quorvane
