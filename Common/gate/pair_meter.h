#pragma once

#include <cstring>
#include <vector>

#include "Common/gate/LevelMeter.h"

namespace gate {

// A typedef, since an alias in a template would lose the attribute without a word.
// NOLINTNEXTLINE(modernize-use-using)
typedef double Pair __attribute__((vector_size(2 * sizeof(double))));

inline Pair load_pair(const double* values) {
    Pair pair;
    std::memcpy(&pair, values, sizeof pair);
    return pair;
}

inline void store_pair(double* values, Pair pair) {
    std::memcpy(values, &pair, sizeof pair);
}

/**
 * Two level meters side by side. An energy waits for the one before, twice for each sample; two of
 * them in one vector wait together, and their rings are one ring. Each goes through the operations
 * of CLevelMeter::update, so that its bits are the same.
 */
class PairMeter {
  public:
    /** Both of the same size, and just initialised. */
    PairMeter(const CLevelMeter& first, const CLevelMeter& second)
        : sums_{first.level(), second.level()}, ring_(2 * static_cast<std::size_t>(first.size())) {
        for (int i = 0; i < first.size(); ++i) {
            ring_[2 * static_cast<std::size_t>(i)] = first.samples()[i];
            ring_[2 * static_cast<std::size_t>(i) + 1] = second.samples()[i];
        }
    }

    /**
     * One run of updates with the state in registers; store() puts it back. The meter must not be
     * used meanwhile.
     */
    class Run {
      public:
        explicit Run(PairMeter& meter)
            : meter_(meter),
              sums_(meter.sums_),
              write_(meter.ring_.data() + meter.position_),
              begin_(meter.ring_.data()),
              end_(begin_ + meter.ring_.size()) {}

        /** Takes in a sample each and returns both energies. */
        Pair update(Pair samples) {
            const Pair oldest = load_pair(write_);
            sums_ -= oldest * oldest;
            store_pair(write_, samples);
            sums_ += samples * samples;
            write_ += 2;
            write_ = write_ == end_ ? begin_ : write_;
            return sums_;
        }

        void store() {
            meter_.sums_ = sums_;
            meter_.position_ = static_cast<std::size_t>(write_ - begin_);
        }

      private:
        PairMeter& meter_;
        Pair sums_;
        double* write_;
        double* begin_;
        double* end_;
    };

  private:
    Pair sums_;
    std::vector<double> ring_;
    std::size_t position_ = 0;
};

}  // namespace gate
