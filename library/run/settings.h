#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "quorvane/quorvane.h"

namespace quorvane {

/** What a caller has set for later calls: quorvane_options with texts of our own. */
struct Settings {
    std::string target;  // a word of --for; empty: none
    bool plain = false;
    int measure = QUORVANE_MEASURE_DEFAULT;
    bool second_thread = false;
    bool replace = false;
    bool strict = false;
    bool salvage = false;
    std::vector<std::string> tuning;
    std::uint64_t memory_bytes = std::uint64_t{256} << 20;
    std::string scratch_folder;
    quorvane_progress progress = nullptr;
    quorvane_log log = nullptr;
    void* context = nullptr;

    std::vector<std::string> targets() const {
        return target.empty() ? std::vector<std::string>() : std::vector<std::string>{target};
    }
};

/** A failure with its code; what() is the sentence for the caller. */
class CallError : public std::runtime_error {
  public:
    CallError(quorvane_code code, const std::string& sentence)
        : std::runtime_error(sentence), code_(code) {}

    quorvane_code code() const { return code_; }

  private:
    quorvane_code code_;
};

/** Reads and checks the options. Throws CallError. */
Settings settings_from(const quorvane_options& options);

}  // namespace quorvane
