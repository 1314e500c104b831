#pragma once

#include <sndfile.h>

#include <string>

namespace level_engine {

/**
 * Refuses NaN and infinite samples. Only float formats can hold them; for all others a check costs
 * nothing.
 */
class FiniteGuard {
  public:
    /**
     * path names the file in the error; info says whether it can hold such samples. first_frame is
     * the frame that the first check begins with.
     */
    FiniteGuard(const std::string& path, const SF_INFO& info, long long first_frame = 0);

    /**
     * Checks the next count interleaved samples of the file. Throws std::runtime_error that names
     * the file and the first frame, counted from 0, with a sample that is not finite.
     */
    void check(const double* samples, long long count);

    /** The same, but reports the first such sample as a defect instead of throwing. */
    void note(const double* samples, long long count);

    /** Whether the file can hold such samples at all. */
    bool needed() const { return needed_; }

  private:
    std::string find(const double* samples, long long count) const;

    std::string path_;
    int channels_;
    bool needed_;
    long long samples_seen_;
};

}  // namespace level_engine

using level_engine::FiniteGuard;
