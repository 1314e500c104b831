#include "leveling/advice/notable_deeds.h"

#include <algorithm>
#include <iterator>

namespace quorvane {
namespace {

/** What was done about a finding is not reported beside the finding itself. */
struct SameNews {
    Deed deed;
    const char* code;
};

constexpr SameNews kSame[] = {{Deed::Raised, "raised"},
                              {Deed::KeptPausesDown, "long-pauses"},
                              {Deed::TookRumbleOut, "rumble"},
                              {Deed::BroughtBackgroundUp, "hum"},
                              {Deed::BroughtBackgroundUp, "noise"},
                              {Deed::BroughtBackgroundUp, "music-bed"},
                              {Deed::BroughtBackgroundUp, "reverberant"},
                              // Too little to be called even.
                              {Deed::LeftEvenAlone, "short"}};

/** Whether one of both is enough. */
bool is_same(const Done& done, const Finding& finding) {
    return std::any_of(std::begin(kSame), std::end(kSame), [&](const SameNews& same) {
        return same.deed == done.deed && finding.code == same.code;
    });
}

}  // namespace

std::vector<Done> notable_deeds(const FileFacts& facts, Phrasing phrasing, Severity least_shown) {
    if (!facts.preparation || facts.outcome != Outcome::Leveled) {
        return {};
    }
    std::vector<Done> deeds = done_in(*facts.preparation, phrasing);
    if (facts.is_track()) {
        // What fills its gaps are the other voices, which go down there.
        const auto is_background = [](const Done& done) {
            return done.deed == Deed::BroughtBackgroundUp;
        };
        deeds.erase(std::remove_if(deeds.begin(), deeds.end(), is_background), deeds.end());
    }
    for (const Finding& finding : facts.findings) {
        // The gravest is the first of the enumeration.
        if (finding.severity <= least_shown) {
            const auto same = [&](const Done& done) { return is_same(done, finding); };
            deeds.erase(std::remove_if(deeds.begin(), deeds.end(), same), deeds.end());
        }
    }
    return deeds;
}

}  // namespace quorvane
