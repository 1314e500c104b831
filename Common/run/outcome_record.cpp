#include "Common/run/outcome_record.h"

#include <algorithm>
#include <cstddef>
#include <utility>

#include "Common/files/cue_list.h"
#include "Common/files/series.h"
#include "Common/reporting/findings.h"
#include "Common/run/constants.h"
#include "Common/units.h"

namespace level_engine {

namespace {

std::string replace_all(std::string text, const std::string& what, const std::string& with) {
    for (std::size_t at = 0; !what.empty() && (at = text.find(what, at)) != std::string::npos;) {
        text.replace(at, what.size(), with);
        at += with.size();
    }
    return text;
}

/** One line without an end. */
std::string joined_lines(std::string text) {
    while (!text.empty() && (text.back() == '\n' || text.back() == ' ')) {
        text.pop_back();
    }
    return replace_all(text, "\n", ": ");
}

}  // namespace

namespace {

thread_local std::shared_ptr<OutcomeRecord> thread_record;

}  // namespace

OutcomeRecord::OutcomeRecord(Collecting by) : found_(nothing_found()), collecting_by_(by) {}

OutcomeRecord& OutcomeRecord::of_this_thread() {
    if (!thread_record) {
        thread_record = std::make_shared<OutcomeRecord>(OutcomeRecord::Collecting::kByProcess);
    }
    return *thread_record;
}

void OutcomeRecord::use_on_this_thread(std::shared_ptr<OutcomeRecord> record) {
    thread_record = std::move(record);
}

void OutcomeRecord::begin_run() {
    reporting::forget_failure();
    reporting::forget_defect();
    forget_findings();
    passages_ = {};
    gain_runs_ = {};
    gains_ = {};
    input_.clear();
    left_files_.reset();
    set(kLevelNotRun, "");
    running_ = true;
}

void OutcomeRecord::end_run() {
    found_ = ::findings();
    running_ = false;
}

/**
 * The cause names the input once: the name is not put in front of a text that contains it. The
 * reason never names it, so that a program that leveled a temporary copy (a decoded one) can put
 * the name that the user knows in front.
 */
void OutcomeRecord::set(LevelOutcomeKind kind, const std::string& text) {
    const bool names_input = !input_.empty() && text.find(input_) != std::string::npos;
    reason_ = reason_of(text);
    cause_ = names_input || input_.empty() || text.empty() ? text : input_ + ": " + text;
    outcome_ = {kind, 0,  0, kLevelNoFile, cause_.c_str(), reason_.c_str(), kLevelNoDefect, "", 0,
                -1,   -1, ""};
}

/** Last of all: the name of the caller's file may hold the input's. */
void OutcomeRecord::name_final(const Intermediates& intermediates) {
    cause_ = replace_all(cause_, Intermediates::kFinalMark, intermediates.final_name());
    reason_ = replace_all(reason_, Intermediates::kFinalMark, intermediates.final_name());
    outcome_.cause = cause_.c_str();
    outcome_.reason = reason_.c_str();
}

bool OutcomeRecord::begins_with_input(const std::string& text) const {
    const std::string prefix = input_ + ": ";
    return !input_.empty() && text.compare(0, prefix.size(), prefix) == 0;
}

std::string OutcomeRecord::reason_of(const std::string& text) const {
    const std::size_t prefix = begins_with_input(text) ? input_.size() + 2 : 0;
    return replace_all(text.substr(prefix), input_, "the recording");
}

/** The input itself may have an intermediate file's name, which then stays in front. */
std::string OutcomeRecord::without_paths(const std::string& text,
                                         const Intermediates& intermediates) const {
    const std::size_t prefix = begins_with_input(text) ? input_.size() + 2 : 0;
    return text.substr(0, prefix) + intermediates.without_paths(text.substr(prefix));
}

void OutcomeRecord::report_defect(const Intermediates& intermediates) {
    const reporting::Defect& defect = reporting::first_defect();
    outcome_.frames_promised = defect.promised;
    outcome_.frames_read = defect.read;
    switch (defect.kind) {
        case reporting::DefectKind::kNone:
            return;
        case reporting::DefectKind::kFramesMissing:
            outcome_.defect = kLevelFramesMissing;
            break;
        case reporting::DefectKind::kNotFinite:
            outcome_.defect = kLevelNotFinite;
            break;
        case reporting::DefectKind::kOther:
            outcome_.defect = kLevelOtherDefect;
            break;
    }
    defect_reason_ = replace_all(reason_of(without_paths(joined_lines(defect.text), intermediates)),
                                 Intermediates::kFinalMark, intermediates.final_name());
    library_text_ = joined_lines(defect.library_text);
    outcome_.defect_reason = defect_reason_.c_str();
    outcome_.defect_by_system = defect.is_systems ? 1 : 0;
    outcome_.library_text = library_text_.c_str();
}

void OutcomeRecord::succeed(LevelOutcomeKind kind, const std::string& reason) {
    set(kind, reason);
}

void OutcomeRecord::cancel() {
    set(kLevelCancelled, "it was cancelled");
}

void OutcomeRecord::refuse() {
    fail(0, Intermediates());
    outcome_.kind = kLevelWrongUsage;
}

void OutcomeRecord::fail(int step, const Intermediates& intermediates) {
    const reporting::Failure& failure = reporting::first_failure();
    std::string text = joined_lines(failure.text);
    if (text.empty()) {
        text = step > 0 ? "step " + std::to_string(step) + " failed and did not say why"
                        : "the engine failed and did not say why";
    }
    // A step that fails on what an earlier one could not read whole has the earlier cause, too.
    const reporting::Defect& defect = reporting::first_defect();
    if (defect.kind != reporting::DefectKind::kNone &&
        text.find(joined_lines(defect.text)) == std::string::npos) {
        text = joined_lines(defect.text) + "; then: " + text;
    }
    set(kLevelFailed, without_paths(text, intermediates));
    outcome_.failed_step = step;
    outcome_.system_failure = failure.kind == reporting::Kind::kSystem || defect.is_systems ? 1 : 0;
    outcome_.failed_file = intermediates.file_in(text);
    name_final(intermediates);
    report_defect(intermediates);
}

void OutcomeRecord::copy_after_failure(int step, const Intermediates& intermediates) {
    fail(step, intermediates);
    outcome_.kind = kLevelCopiedStepFailed;
}

void OutcomeRecord::collect_passages(const std::string& cues,
                                     const std::string& levels,
                                     const std::string& gains) {
    CueList list;
    if (!collecting_ || !read_cue_list(cues, list)) {
        return;
    }
    const LevelFindings& found = ::findings();
    const int bin_frames = ms_to_frames(kBin_ms, found.sample_rate_hz);
    const std::vector<double> levels_db = read_series(levels);
    const std::vector<double> bin_gains = read_series(gains);
    if (bin_frames < 1) {
        return;
    }
    // A cue opens a segment and closes the one before; the last ends with the recording. Gains of
    // segments at the end may be missing, where silent ones were left out: the last gain stands in.
    long long begin = 0;
    for (std::size_t i = 0; i < levels_db.size(); ++i) {
        const long long end =
            i < list.frames.size() ? nearest_wall(list.frames[i], bin_frames) : found.frames;
        const auto bin = static_cast<std::size_t>(begin / bin_frames);
        if (end > begin && !bin_gains.empty()) {
            passages_.push_back(
                {begin, end, levels_db[i], bin_gains[std::min(bin, bin_gains.size() - 1)]});
        }
        begin = end;
    }
}

void OutcomeRecord::collect_gain_curve(const std::string& smoothed_gains) {
    if (!collecting_) {
        return;
    }
    const std::vector<double> gains = read_series(smoothed_gains);
    for (std::size_t i = 0; i < gains.size(); ++i) {
        // No gain is negative or no number, so that equal ones have the same bits.
        if (gain_runs_.empty() || gain_runs_.back().gain != gains[i]) {
            gain_runs_.push_back({gains[i], i});
        }
        gain_runs_.back().end = i + 1;
    }
    ::findings().bin_s = kBin_s;
}

const LevelFindings* OutcomeRecord::findings() {
    if (!collecting_) {
        return nullptr;
    }
    if (gains_.empty() && !gain_runs_.empty()) {
        gains_.reserve(gain_runs_.back().end);
        for (const GainRun& run : gain_runs_) {
            gains_.resize(run.end, run.gain);
        }
    }
    if (running_) {
        found_ = ::findings();
    }
    found_.passage_count = passages_.size();
    found_.passages = passages_.data();
    found_.gain_count = gains_.size();
    found_.gains = gains_.data();
    return &found_;
}

}  // namespace level_engine
