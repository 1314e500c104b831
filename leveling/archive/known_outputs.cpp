#include "leveling/archive/known_outputs.h"

#include <algorithm>
#include <filesystem>
#include <system_error>
#include <vector>

#include "leveling/archive/content_hash.h"

namespace quorvane {
namespace {

/** Empty when the file cannot be read: then it fits no record. */
std::string hash_of(const std::string& path) {
    try {
        return content_hash(path);
    } catch (const std::system_error&) {
        return "";
    }
}

}  // namespace

KnownOutputs::Known KnownOutputs::look_up(const std::string& path) {
    if (std::string book_path = record_path(path); book_path != book_path_) {
        book_ = std::make_unique<RecordBook>(book_path);
        book_path_ = std::move(book_path);
    }
    const auto records = book_->find_outputs(std::filesystem::path(path).filename().string());
    if (records.empty()) {
        return Known::No;
    }
    const FileState state = state_of(path);
    const auto has_state = [&](const OutputRecord& record) { return record.state == state; };
    const auto has_size = [&](const OutputRecord& record) {
        return record.state.size == state.size;
    };
    if (std::any_of(records.begin(), records.end(), has_state)) {
        return Known::Output;
    }
    if (std::none_of(records.begin(), records.end(), has_size)) {
        return Known::Edited;
    }
    const std::string hash = hash_of(path);
    const bool same = std::any_of(records.begin(), records.end(), [&](const OutputRecord& record) {
        return has_size(record) && record.hash == hash;
    });
    return same ? Known::Output : Known::Edited;
}

}  // namespace quorvane
