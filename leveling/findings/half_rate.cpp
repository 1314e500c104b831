#include "leveling/findings/half_rate.h"

#include "Common/audio/wide_loops.h"

namespace quorvane {
namespace {

QUORVANE_WIDE_LOOP
void every_second(const float* from, std::size_t count, float* to) {
    for (std::size_t i = 0; i < count; ++i) {
        const float* const x = from + 2 * i;
        to[i] = 0.5F * x[3] + 0.28125F * (x[2] + x[4]) - 0.03125F * (x[0] + x[6]);
    }
}

}  // namespace

void HalfRate::process(const float* samples, std::size_t count, std::vector<float>& to) {
    waiting_.insert(waiting_.end(), samples, samples + count);
    const std::size_t made = (waiting_.size() - kMemory) / 2;
    const std::size_t old = to.size();
    to.resize(old + made);
    every_second(waiting_.data(), made, to.data() + old);
    waiting_.erase(waiting_.begin(), waiting_.begin() + static_cast<std::ptrdiff_t>(2 * made));
}

}  // namespace quorvane
