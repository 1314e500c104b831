#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "leveling/facts/facts_list.h"
#include "leveling/facts/run_facts.h"
#include "leveling/report/report.h"
#include "leveling/request/request.h"
#include "leveling/storage/staged_output.h"

namespace quorvane {

/**
 * The JSON file, the CSV file and the report of a run, written file by file while the run goes on,
 * so that the curves of a hundred thousand recordings are never in memory together. Files finish in
 * any order and are written in that of the inputs: what comes early waits. All take their names at
 * the end.
 */
class ResultFiles {
  public:
    /**
     * count: how many files there will be. listening_part: see ReportOptions; for
     * requests with excerpts. The request must outlive this.
     */
    ResultFiles(const Request& request,
                std::size_t count,
                const std::function<std::string(const FileFacts&)>& listening_part);
    ~ResultFiles();
    ResultFiles(const ResultFiles&) = delete;
    ResultFiles& operator=(const ResultFiles&) = delete;

    /** Takes the facts of one file, 0 <= index < count. Never throws; problems() tells. */
    void add(std::size_t index, FileFacts facts);

    /** The facts of all files, in the order of the inputs, without curves and passages. */
    const FactsList& files() const { return files_; }

    /** Gives the files their names. Returns the page to open first, or "". Never throws. */
    std::string commit();

    /** "the JSON file could not be written: ...", once for each of them. */
    const std::vector<std::string>& problems() const { return problems_; }

  private:
    void write(std::size_t index);

    const Request& request_;
    FactsList files_;
    std::vector<bool> there_;
    std::size_t next_ = 0;  // the first that is not written
    std::unique_ptr<StagedText> json_;
    std::unique_ptr<StagedText> csv_;
    std::unique_ptr<ReportWriter> report_;
    std::vector<std::string> problems_;
};

}  // namespace quorvane
