#include "leveling/report/result_files.h"

#include <fmt/format.h>

#include <exception>
#include <utility>

#include "leveling/publish/verdict.h"
#include "leveling/report/csv.h"

namespace quorvane {
namespace {

/** Runs one of the two writers; when it fails, the error is reported and the writer dropped. */
template <class Writer, class Work>
void attempt(std::unique_ptr<Writer>& writer,
             const char* what,
             std::vector<std::string>& problems,
             const Work& work) {
    try {
        work();
    } catch (const std::exception& error) {
        writer.reset();
        problems.push_back(fmt::format("the {} could not be written: {}", what, error.what()));
    }
}

// As the messages name them.
constexpr const char* kJson = "JSON file";
constexpr const char* kCsv = "CSV file";
constexpr const char* kReport = "report";

}  // namespace

ResultFiles::ResultFiles(const Request& request,
                         std::size_t count,
                         const std::function<std::string(const FileFacts&)>& listening_part)
    : request_(request), files_(count), there_(count) {
    if (!request.json.empty() && !request.json_on_standard_output()) {
        attempt(json_, kJson, problems_, [&] {
            remove_stale_parts(request.json);
            json_ = std::make_unique<StagedText>(request.json);
        });
    }
    if (!request.csv.empty()) {
        attempt(csv_, kCsv, problems_, [&] {
            remove_stale_parts(request.csv);
            csv_ = std::make_unique<StagedText>(request.csv);
            csv_->add(csv_header());
        });
    }
    if (!request.report.empty()) {
        attempt(report_, kReport, problems_, [&] {
            report_ = std::make_unique<ReportWriter>(
                request.report, count,
                ReportOptions{request.destinations, request.listen ? listening_part : nullptr});
        });
    }
}

ResultFiles::~ResultFiles() = default;

void ResultFiles::add(std::size_t index, FileFacts facts) {
    // Curves and passages are kept only for the writers of JSON and the report.
    if (!json_ && !report_) {
        strip_details(facts);
    }
    files_.set(index, std::move(facts));
    there_[index] = true;
    for (; next_ < files_.size() && there_[next_]; ++next_) {
        write(next_);
    }
}

void ResultFiles::write(std::size_t index) {
    // A writer that has failed is gone by now: the other one goes on.
    FileFacts facts = files_.take(index);
    if (report_) {
        attempt(report_, kReport, problems_, [&] { report_->add(facts); });
    }
    if (json_) {
        attempt(json_, kJson, problems_, [&] {
            json_->add(dump(facts_document(facts, request_.destinations, request_.curves)) + "\n");
        });
    }
    if (csv_) {
        attempt(csv_, kCsv, problems_, [&] { csv_->add(csv_row(facts, request_.destinations)); });
    }
    strip_details(facts);
    files_.set(index, std::move(facts));
}

std::string ResultFiles::commit() {
    std::string page;
    if (report_) {
        attempt(report_, kReport, problems_, [&] { page = report_->finish(); });
    }
    if (json_) {
        attempt(json_, kJson, problems_, [&] { json_->commit(); });
    }
    if (csv_) {
        attempt(csv_, kCsv, problems_, [&] { csv_->commit(); });
    }
    return page;
}

}  // namespace quorvane
