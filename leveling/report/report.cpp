#include "leveling/report/report.h"

#include <fmt/format.h>

#include <algorithm>
#include <boost/algorithm/string/case_conv.hpp>
#include <filesystem>
#include <fstream>
#include <set>
#include <utility>

#include "leveling/report/conversation_page.h"
#include "leveling/report/html.h"
#include "leveling/report/index_page.h"
#include "leveling/report/page.h"
#include "leveling/report/page_words.h"
#include "leveling/storage/staged_output.h"

namespace quorvane {
namespace fs = std::filesystem;

namespace {

constexpr const char* kConversationPage = "conversation.html";

/** A file that no report has written keeps its name, and the page gets another one. */
bool is_foreign(const fs::path& page) {
    std::ifstream in(page, std::ios::binary);
    const std::string start = kReportStart;
    std::string text(start.size(), '\0');
    in.read(&text[0], static_cast<std::streamsize>(text.size()));
    return in.gcount() > 0 && text != start;
}

/**
 * The page's name in the report's folder: the file's own, each once. The end of what is too long
 * for a file name is cut.
 */
std::string page_name(const fs::path& folder,
                      const FileFacts& facts,
                      std::set<std::string>& taken) {
    constexpr std::size_t kMostBytes = 200;
    std::string base = name_of(facts);
    base.resize(std::min(base.size(), kMostBytes));
    std::string name = base + ".html";
    // Lower case, since a file system may hold "A.html" and "a.html" for one.
    for (int n = 2; !taken.insert(boost::to_lower_copy(name)).second || is_foreign(folder / name);
         ++n) {
        name = fmt::format("{}-{}.html", base, n);
    }
    return name;
}

}  // namespace

std::string report_page(const FileFacts& facts, const ReportOptions& options) {
    return page_of(facts, options, Place::Alone);
}

ReportWriter::ReportWriter(const std::string& path, std::size_t count, ReportOptions options)
    : path_(path),
      options_(std::move(options)),
      folder_(count != 1 || path.back() == '/' || fs::is_directory(path)) {
    if (folder_) {
        remove_stale_parts_ending(path, ".html");
    } else {
        remove_stale_parts(path);
    }
}

ReportWriter::~ReportWriter() = default;

void ReportWriter::add(const FileFacts& facts) {
    // A page that is written whole or not at all: a reader who reloads meets no half of one.
    if (!folder_) {
        return write_whole_text(path_.string(), report_page(facts, options_));
    }
    std::string page;
    if (facts.before) {
        page = page_name(path_, facts, taken_);
        write_whole_text((path_ / page).string(), page_of(facts, options_, Place::InFolder));
    }
    if (facts.conversation) {
        lanes_[facts.conversation->first_track].push_back(lane_of(facts, page));
    }
    rows_.push_back(index_row(facts, page, options_));
    // Curves are megabytes for a long recording; they are on its page now and in no one's memory.
    FileFacts kept = facts;
    strip_details(kept);
    files_.push_back(std::move(kept));
}

/** Returns their names in the folder. */
std::vector<std::string> ReportWriter::write_conversations() {
    std::vector<std::string> pages;
    for (const auto& [first_track, lanes] : lanes_) {
        std::string page = kConversationPage;
        for (std::size_t n = 2; !pages.empty() && (n == 2 || taken_.count(page) != 0); ++n) {
            page = fmt::format("conversation-{}.html", n);
        }
        taken_.insert(page);
        write_whole_text((path_ / page).string(),
                         html_page("A conversation", conversation_page(lanes, options_)));
        pages.push_back(std::move(page));
    }
    return pages;
}

std::string ReportWriter::finish() {
    if (!folder_) {
        return path_.string();
    }
    const std::vector<std::string> conversations = write_conversations();
    const fs::path index = path_ / "index.html";
    write_whole_text(index.string(),
                     html_page("Leveling report",
                               index_page(files_, std::move(rows_), conversations, options_)));
    return index.string();
}

std::string write_report(const std::string& path,
                         const std::vector<FileFacts>& files,
                         const ReportOptions& options) {
    ReportWriter report(path, files.size(), options);
    for (const FileFacts& facts : files) {
        report.add(facts);
    }
    return report.finish();
}

}  // namespace quorvane
