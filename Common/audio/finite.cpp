#include "Common/audio/finite.h"

#include <cmath>
#include <limits>
#include <stdexcept>

#include "Common/audio/wide_loops.h"
#include "Common/reporting/failure.h"

namespace level_engine {
namespace {

QUORVANE_WIDE_LOOP bool are_finite(const double* samples, long long count) {
    // Not a number compares false with everything, hence the negation.
    int found = 0;
    for (long long i = 0; i < count; ++i) {
        found |= static_cast<int>(!(std::fabs(samples[i]) <= std::numeric_limits<double>::max()));
    }
    return found == 0;
}

}  // namespace

FiniteGuard::FiniteGuard(const std::string& path, const SF_INFO& info, long long first_frame)
    : path_(path), channels_(info.channels), samples_seen_(first_frame * info.channels) {
    const int encoding = info.format & SF_FORMAT_SUBMASK;
    needed_ = encoding == SF_FORMAT_FLOAT || encoding == SF_FORMAT_DOUBLE;
}

/** Where the first such sample is and which kind it is, "" without any. */
std::string FiniteGuard::find(const double* samples, long long count) const {
    if (!needed_) {
        return "";
    }
    // Without a branch first, since all of it is finite nearly always; then where it was.
    if (are_finite(samples, count)) {
        return "";
    }
    for (long long i = 0; i < count; ++i) {
        if (!std::isfinite(samples[i])) {
            return path_ + ": the sample in frame " +
                   std::to_string((samples_seen_ + i) / channels_) +
                   (std::isnan(samples[i]) ? " is not a number" : " is infinite");
        }
    }
    return "";
}

void FiniteGuard::check(const double* samples, long long count) {
    const std::string problem = find(samples, count);
    if (!problem.empty()) {
        throw std::runtime_error(problem);
    }
    samples_seen_ += count;
}

void FiniteGuard::note(const double* samples, long long count) {
    const std::string problem = find(samples, count);
    if (!problem.empty()) {
        reporting::Defect defect;
        defect.kind = reporting::DefectKind::kNotFinite;
        defect.text = problem;
        reporting::note_defect(defect);
    }
    samples_seen_ += count;
}

}  // namespace level_engine
