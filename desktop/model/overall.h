#pragma once

#include <optional>

#include "desktop/model/row.h"
#include "desktop/model/words.h"

namespace desktop {

/**
 * How far the work is that began with the first file after a pause. Each file counts by its size,
 * as leveling takes time in proportion to it; so the time left is right for a talk of two hours
 * among many jingles, too.
 */
class Overall {
  public:
    /** Weight, in bytes, of a file of so many bytes: a little for each, so that many small ones
     * count too. */
    static double weight_of(const std::string& input);

    /** A file of that weight (bytes) that is to be worked on. */
    void add(double weight);

    /** A file that is finished without any work: weight 0, but it counts as a file. */
    void add_finished(quorvane::Outcome outcome);

    /** The file's share went from one fraction to another. */
    void progressed(double weight, double from, double to);
    /** The file ended, at the fraction that progressed() reported last. */
    void finished(double weight, double from, quorvane::Outcome outcome);

    /** Of all the work, 0 to 1, by weight. */
    double fraction() const { return all_weight_ > 0 ? done_weight_ / all_weight_ : 0; }

    int files() const { return files_; }

    const Counts& counts() const { return counts_; }

    /** From the pace until now; nothing while that is too little to tell. */
    std::optional<double> seconds_left(double elapsed_s) const;

  private:
    double all_weight_ = 0;   // bytes
    double done_weight_ = 0;  // bytes, running files by their fraction
    int files_ = 0;
    Counts counts_;
};

}  // namespace desktop
