#include "leveling/inputs/earlier_places.h"

#include <filesystem>
#include <map>
#include <memory>
#include <string>

#include "leveling/archive/record.h"
#include "leveling/inputs/plan.h"

/*
 * A file in tree/Band/ has its output in DIR/Band after `-d DIR tree`, and would get it in DIR
 * after
 * `-d DIR tree/Band`. Any other run over the same file put it at the end of the input's own path
 * too, so the folders on that path are all there is to look at, and of these only the ones with a
 * record.
 */

namespace quorvane {
namespace fs = std::filesystem;

namespace {

class EarlierPlaces {
  public:
    explicit EarlierPlaces(const OutputNames& names) : names_(names) {}

    /** Where below the output folder the file's output stands, "" for nowhere. */
    std::string find(const FoundFile& file) {
        std::error_code error;
        const fs::path input = fs::absolute(file.path, error).lexically_normal();
        FoundFile candidate = file;
        fs::path below = input.filename();
        for (fs::path folder = input.parent_path();; folder = folder.parent_path()) {
            candidate.below = below.string();
            if (candidate.below != file.below && is_output_of(candidate)) {
                return candidate.below;
            }
            if (!folder.has_relative_path()) {
                return "";
            }
            below = folder.filename() / below;
        }
    }

  private:
    bool is_output_of(const FoundFile& candidate) {
        std::error_code error;
        const fs::path output = output_of(names_, candidate);
        const std::string record = record_path(output.string());
        const auto [known, is_new] = has_record_.emplace(record, false);
        if (is_new) {
            known->second = fs::exists(record, error);
        }
        if (!known->second || !fs::exists(output, error)) {
            return false;
        }
        if (record != book_path_) {
            book_ = std::make_unique<RecordBook>(record);
            book_path_ = record;
        }
        const auto records = book_->find(output.filename().string());
        return !records.empty() && is_same_path(records.front().input, candidate.path);
    }

    const OutputNames& names_;
    std::map<std::string, bool> has_record_;
    std::string book_path_;  // of the last folder
    std::unique_ptr<RecordBook> book_;
};

}  // namespace

void keep_earlier_places(const OutputNames& names, std::vector<FoundFile>& files) {
    if (names.output_dir.empty()) {
        return;
    }
    EarlierPlaces places(names);
    for (FoundFile& file : files) {
        std::error_code error;
        if (fs::exists(output_of(names, file), error)) {
            continue;
        }
        if (std::string below = places.find(file); !below.empty()) {
            file.below = std::move(below);
        }
    }
}

}  // namespace quorvane
