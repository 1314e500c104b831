#include <algorithm>

#include "leveling/findings/detectors.h"

namespace quorvane {
namespace {

constexpr std::size_t kMostPlaces = 20;
constexpr double kJoined_s = 0.5;

}  // namespace

std::vector<FindingPlace> longest_places(std::vector<FindingPlace> places) {
    const auto by_time = [](const FindingPlace& one, const FindingPlace& other) {
        return one.from_s < other.from_s;
    };
    std::sort(places.begin(), places.end(), by_time);
    std::vector<FindingPlace> joined;
    for (const FindingPlace& place : places) {
        if (!joined.empty() && place.from_s <= joined.back().to_s + kJoined_s) {
            joined.back().to_s = std::max(joined.back().to_s, place.to_s);
        } else {
            joined.push_back(place);
        }
    }
    std::stable_sort(joined.begin(), joined.end(),
                     [](const FindingPlace& one, const FindingPlace& other) {
                         return one.to_s - one.from_s > other.to_s - other.from_s;
                     });
    joined.resize(std::min(joined.size(), kMostPlaces));
    std::sort(joined.begin(), joined.end(), by_time);
    return joined;
}

std::vector<FindingPlace> places_of(const SoundProfile& profile,
                                    const std::vector<std::size_t>& tenths) {
    const double tenth_s = profile.tenth_s();
    std::vector<FindingPlace> places;
    for (const std::size_t tenth : tenths) {
        const double from_s = static_cast<double>(tenth) * tenth_s;
        if (!places.empty() && from_s <= places.back().to_s + kJoined_s) {
            places.back().to_s = from_s + tenth_s;
        } else {
            places.push_back({from_s, from_s + tenth_s});
        }
    }
    return longest_places(std::move(places));
}

}  // namespace quorvane
