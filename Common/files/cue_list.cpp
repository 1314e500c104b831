#include "Common/files/cue_list.h"

#include <cstdlib>
#include <fstream>
#include <istream>
#include <limits>
#include <locale>

#include "Common/files/series.h"

namespace level_engine {

/*
 * A text that other programs open as a list of marks. Behind two lines of header comes the sample
 * rate; a mark is its frame, a "0" for its kind and three empty lines for name and comments.
 */

namespace {

constexpr const char* kHeader =
    "\x03 CueListTool 1.3 file - do not edit unless you know exactly what you do!\n"
    "Prefix=\n";
constexpr int kLinesBeforeRate = 2;
constexpr int kLinesAfterPosition = 4;  // the rest of its own line, "0" and two of the empty ones

void skip_lines(std::istream& file, int count) {
    for (int i = 0; i < count; ++i) {
        file.ignore(std::numeric_limits<std::streamsize>::max(), '\n');
    }
}

}  // namespace

void write_cue_list(std::ostream& file, const CueList& cues) {
    file.imbue(std::locale::classic());
    file << kHeader << cues.sample_rate_hz << "\n";
    for (const long long frame : cues.frames) {
        file << frame << "\n0\n\n\n\n";
    }
}

bool read_cue_list(const std::string& path, CueList& cues, std::string* problem) {
    std::ifstream file(path);
    file.imbue(std::locale::classic());
    if (!file.is_open()) {
        return false;
    }
    cues = CueList();
    skip_lines(file, kLinesBeforeRate);
    // A rate that is not a number reads as 0; positions do not depend on it.
    std::string rate;
    std::getline(file, rate);
    cues.sample_rate_hz = std::atoi(rate.c_str());
    for (long long frame = 0; file >> frame;) {
        cues.frames.push_back(frame);
        skip_lines(file, kLinesAfterPosition);
    }
    if (problem != nullptr) {
        *problem = read_problem(file, path);
    }
    return true;
}

long long nearest_wall(long long frame, int bin_frames) {
    const long long rest = frame % bin_frames;
    const long long beyond_wall = rest < 0 ? rest + bin_frames : rest;
    return frame - beyond_wall + (2 * beyond_wall >= bin_frames ? bin_frames : 0);
}

}  // namespace level_engine
