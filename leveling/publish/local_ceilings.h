#pragma once

#include <vector>

namespace quorvane {

/**
 * A limiter's ceiling over time, lowered where a coding with loss has added to the peaks. Lowered
 * for the whole file it would cost loudness, which more limiting would have to bring back; the
 * places are few and short.
 */
class LocalCeilings {
  public:
    /** Both in dBTP: what no peak of the coded file may exceed, and the limiter's ceiling. */
    LocalCeilings(double limit_db, double ceiling_db);

    /**
     * Lowers the ceiling in each block whose coded peak is above the limit or just below it, and in
     * the two beside it, as encoders shift and smear; there only for what is as high. `coded` and
     * `rendered` are the peaks of the blocks (block_peaks_of) of the file after and before its
     * coding: the new ceiling is so far below the rendered peak that the same addition would end
     * below the limit. As a coder's additions change with every try, each call leaves more room
     * than the one before.
     */
    void lower(const std::vector<double>& coded, const std::vector<double>& rendered);

    /** For each block a factor up to 1 on the limiter's ceiling. Empty: 1 everywhere. */
    const std::vector<double>& factors() const { return factors_; }

    /** The lowest ceiling of a block that exceeded the limit, dBTP. */
    double lowest_db() const { return lowest_db_; }

  private:
    double limit_;  // linear, as all below
    double ceiling_;
    double lowest_db_;
    int calls_ = 0;
    std::vector<double> factors_;
};

}  // namespace quorvane
