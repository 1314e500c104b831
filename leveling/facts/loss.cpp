#include "leveling/facts/loss.h"

#include <fmt/format.h>

#include <algorithm>
#include <numeric>

#include "leveling/facts/file_error.h"

namespace quorvane {
namespace {

constexpr std::size_t kMostPlaces = 5;  // in a note
constexpr double kNoticed = 0.01;       // a share that listeners will notice

/** "silence from 1.25 s to 1.30 s, from 4.00 s to 4.10 s and at 3 more places". */
std::string places_of(const std::vector<Gap>& gaps, double rate_hz) {
    std::string text;
    for (std::size_t i = 0; i < std::min(gaps.size(), kMostPlaces); ++i) {
        text += fmt::format("{} from {:.2f} s to {:.2f} s", i == 0 ? "silence" : ",",
                            static_cast<double>(gaps[i].at) / rate_hz,
                            static_cast<double>(gaps[i].at + gaps[i].frames) / rate_hz);
    }
    if (gaps.size() > kMostPlaces) {
        text += fmt::format(" and at {} more places", gaps.size() - kMostPlaces);
    }
    return text;
}

/** The longest gaps, in order of time; what is missing at the end counts as one. */
std::vector<FindingPlace> longest_gaps(const Loss& loss, const FileFacts& facts) {
    constexpr std::size_t kMostFindingPlaces = 20;
    const double rate_hz = std::max(facts.sample_rate_hz, 1);
    std::vector<FindingPlace> places;
    for (const Gap& gap : loss.gaps) {
        places.push_back({static_cast<double>(gap.at) / rate_hz,
                          static_cast<double>(gap.at + gap.frames) / rate_hz});
    }
    if (loss.missing > 0) {
        const auto frames = static_cast<double>(facts.frames);
        places.push_back(
            {frames / rate_hz, (frames + static_cast<double>(loss.missing)) / rate_hz});
    }
    std::stable_sort(places.begin(), places.end(),
                     [](const FindingPlace& one, const FindingPlace& other) {
                         return one.to_s - one.from_s > other.to_s - other.from_s;
                     });
    places.resize(std::min(places.size(), kMostFindingPlaces));
    std::sort(places.begin(), places.end(), [](const FindingPlace& one, const FindingPlace& other) {
        return one.from_s < other.from_s;
    });
    return places;
}

}  // namespace

void Loss::add(std::int64_t at, std::int64_t frames) {
    if (frames <= 0) {
        return;
    }
    if (!gaps.empty() && gaps.back().at + gaps.back().frames == at) {
        gaps.back().frames += frames;
    } else {
        gaps.push_back({at, frames});
    }
}

std::int64_t Loss::frames() const {
    return std::accumulate(gaps.begin(), gaps.end(), missing,
                           [](std::int64_t sum, const Gap& gap) { return sum + gap.frames; });
}

void judge_loss(const Loss& loss, LossLimit limit, FileFacts& facts) {
    if (loss.frames() <= 0) {
        return;
    }
    const double rate_hz = std::max(facts.sample_rate_hz, 1);
    const auto lost = static_cast<double>(loss.frames());
    const auto all = static_cast<double>(std::max(facts.frames, std::int64_t{0}) + loss.missing);
    const double share = lost / std::max(all, lost);
    std::string text = fmt::format("is cut short or damaged: {:.2f} s of {:.2f} s ({:.1f} %) lost",
                                   lost / rate_hz, all / rate_hz, 100 * share);
    const std::string places = places_of(loss.gaps, rate_hz);
    text += places.empty() ? "" : "; " + places;
    if (loss.missing > 0) {
        text += fmt::format("; the end is missing from {:.2f} s on",
                            static_cast<double>(facts.frames) / rate_hz);
    }
    if (limit == LossLimit::None) {
        throw FileError(text);
    }
    if (limit == LossLimit::Small && share >= kMostLost) {
        throw FileError(text + "; --salvage levels what is left of it");
    }
    facts.notes.push_back(text);
    facts.findings.push_back({"damaged", share >= kNoticed ? Severity::Problem : Severity::Warning,
                              100 * share, "%", longest_gaps(loss, facts), ""});
}

}  // namespace quorvane
