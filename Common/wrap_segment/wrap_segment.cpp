#include "Common/wrap_segment/wrap_segment.h"

#include <boost/iostreams/device/null.hpp>
#include <boost/iostreams/stream.hpp>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <fstream>
#include <iterator>
#include <locale>
#include <sstream>
#include <vector>

#include "Common/CommandLine.h"
#include "Common/files/cue_list.h"
#include "Common/files/numbers.h"
#include "Common/files/same_file.h"
#include "Common/files/series.h"
#include "Common/reporting/findings.h"
#include "Common/reporting/log.h"
#include "Common/segment/segment.h"
#include "Common/units.h"

/*
 * Between the levels file and the segmentation. Pauses would make segments of their own, so quiet
 * bins are taken out first: those more than 12 dB (as the driver has it) below the average. What is
 * left is segmented as if it were one stretch of speech, and the breakpoints, which count the bins
 * that took part, are turned back into positions in the recording through the list of these bins.
 *
 * The levels go to the segmentation as text with six significant digits, and come in with twelve
 * decimals: the rounding is part of what the segmentation sees.
 */
namespace wrap_segment {

namespace {

constexpr const char* kSource = "Common/wrap_segment/wrap_segment";
constexpr int kDigits = 6;  // of the levels that are segmented

/** The bins that take part in the segmentation: their levels as text, and which bins they are. */
struct LoudBins {
    std::string levels;
    std::vector<std::size_t> indices;
};

/**
 * The dB value of the mean linear amplitude. The mean of the dB values would be pulled down by
 * every pause, and the threshold with it.
 */
double average_level_db(const std::vector<double>& levels_db) {
    double sum = 0.0;
    for (const double level_db : levels_db) {
        sum += db_to_linear(level_db);
    }
    return linear_to_db(sum / static_cast<double>(levels_db.size()));
}

LoudBins bins_above(const std::vector<double>& levels_db, double threshold_db) {
    LoudBins loud;
    char text[32];
    for (std::size_t i = 0; i < levels_db.size(); ++i) {
        if (levels_db[i] > threshold_db) {
            const std::size_t length =
                write_number(text, sizeof text, Notation::kGeneral, kDigits, levels_db[i]);
            loud.levels.append(text, length).push_back('\n');
            loud.indices.push_back(i);
        }
    }
    return loud;
}

/** Returns the segmentation engine's result; breakpoints receives indices into the values. */
int find_breakpoints(const std::string& levels, std::vector<std::size_t>& breakpoints) {
    const char* argv[] = {"segment",
                          "--tolerance",
                          options::tolerance.c_str(),
                          "--min-segment-length",
                          options::min_segment_length.c_str(),
                          "--max-breakpoints",
                          options::max_breakpoints.c_str(),
                          "--chunk-size",
                          options::chunk_size.c_str(),
                          "--cost-function",
                          options::cost_function.c_str()};
    // Nobody here needs the fitted levels.
    boost::iostreams::stream<boost::iostreams::null_sink> fit{boost::iostreams::null_sink()};
    std::stringstream breaks;
    breaks.imbue(std::locale::classic());
    const int result =
        segment::_tmain(static_cast<int>(std::size(argv)), argv, levels, fit, breaks);
    // Also after a failure: what was written before it is of no harm, the caller looks at the
    // result.
    for (std::size_t breakpoint = 0; breaks >> breakpoint;) {
        breakpoints.push_back(breakpoint);
    }
    return result;
}

/**
 * Returns 0, or 1 after a message: a list that did not get to the disk whole is a failure. One that
 * cannot be opened is not: the next step misses it.
 */
int write_cues(const std::string& path, const CueList& cues) {
    std::ofstream file(path);
    if (!file) {
        reporting::Defect defect;
        defect.kind = reporting::DefectKind::kOther;
        defect.text = "the cue list " + path + " cannot be written: " + std::strerror(errno);
        defect.is_systems = true;
        reporting::note_defect(defect);
        return 0;
    }
    write_cue_list(file, cues);
    const std::string problem = close_text(file, path);
    return problem.empty() ? 0 : log_failure(kSource, __LINE__, problem, reporting::Kind::kSystem);
}

}  // namespace

// NOLINTBEGIN(performance-unnecessary-value-param): the paths are values in the step's contract.
int wrap_segment(std::string rmsFile,
                 std::string /*label*/,
                 std::string /*segmentOptionsFile*/,
                 std::string cueListFile,
                 double quietDelta,
                 int sampleRate,
                 double binSeconds) {
    // NOLINTEND(performance-unnecessary-value-param)
    if (quietDelta > 0.0) {
        return log_failure(kSource, __LINE__, "error: quiet_delta must be negative");
    }
    if (is_same_file(rmsFile, cueListFile)) {
        return log_failure(kSource, __LINE__, overwritten_input_text(cueListFile));
    }
    std::string problem;
    const std::vector<double> levels_db = read_series(rmsFile, &problem);
    if (!problem.empty()) {
        return log_failure(kSource, __LINE__, problem, reporting::Kind::kSystem);
    }
    if (levels_db.empty()) {
        return log_failure(kSource, __LINE__, "error: no levels in " + rmsFile);
    }
    const double threshold_db = average_level_db(levels_db) + quietDelta;
    findings().segment_threshold_db = threshold_db;
    const LoudBins loud = bins_above(levels_db, threshold_db);
    if (loud.indices.empty()) {
        return log_failure(kSource, __LINE__,
                           "error: no level in " + rmsFile + " is above the threshold");
    }
    std::vector<std::size_t> breakpoints;
    if (find_breakpoints(loud.levels, breakpoints) != 0) {
        return 1;
    }
    const double bin_frames = sampleRate * binSeconds;
    if (!(bin_frames >= 0.0 && bin_frames <= 2147483647.0)) {
        return log_failure(kSource, __LINE__, "error: the bin length is out of range");
    }
    // Quiet bins took no part: a cue is at the first loud bin after a pause.
    CueList cues{sampleRate, {}};
    for (const std::size_t breakpoint : breakpoints) {
        cues.frames.push_back(static_cast<long long>(loud.indices.at(breakpoint)) *
                              static_cast<long long>(bin_frames));
    }
    return write_cues(cueListFile, cues);
}

}  // namespace wrap_segment
