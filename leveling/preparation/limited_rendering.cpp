#include "leveling/preparation/limited_rendering.h"

#include <algorithm>
#include <cstddef>

#include "leveling/publish/limiter.h"

namespace quorvane {
namespace {

/** Gives the output each frame together with the recording's, for which the limiter is late. */
class LimitedOutput {
  public:
    LimitedOutput(const SF_INFO& recording, double ceiling, OutputFile& out)
        : channels_(static_cast<std::size_t>(recording.channels)),
          limiter_(recording.channels, recording.samplerate, 1, ceiling),
          out_(out) {}

    void take(const double* samples, const double* original, long long frames, Peaks peaks) {
        const auto count = static_cast<std::size_t>(frames) * channels_;
        originals_.insert(originals_.end(), original, original + count);
        limiter_.expect(peaks);
        limiter_.process(samples, static_cast<std::size_t>(frames), ready_);
        pass_on();
    }

    void finish() {
        limiter_.finish(ready_);
        pass_on();
        out_.finish();
    }

  private:
    void pass_on() {
        out_.take(ready_.data(), originals_.data(),
                  static_cast<long long>(ready_.size() / channels_));
        originals_.erase(originals_.begin(),
                         originals_.begin() + static_cast<std::ptrdiff_t>(ready_.size()));
        ready_.clear();
    }

    std::size_t channels_;
    TruePeakLimiter limiter_;
    OutputFile& out_;
    std::vector<double> ready_ = {};
    std::vector<double> originals_ = {};
};

/** Whether the piece that ends in the middle of a bin, or the one behind it, may hold a peak. */
Peaks peaks_near(const std::vector<bool>& bins, std::size_t bin) {
    const std::size_t begin = bin - std::min<std::size_t>(bin, 1);
    const std::size_t end = std::min(bin + 1, bins.size());
    return std::any_of(bins.begin() + static_cast<std::ptrdiff_t>(std::min(begin, end)),
                       bins.begin() + static_cast<std::ptrdiff_t>(end), [](bool is) { return is; })
               ? Peaks::kPossible
               : Peaks::kNone;
}

}  // namespace

void render_limited(CurveReader& reader,
                    const SF_INFO& recording,
                    const Limit& limit,
                    OutputFile& out,
                    const std::function<void(double)>& progress) {
    LimitedOutput limited(recording, limit.ceiling, out);
    std::size_t bin = 0;  // in whose middle the piece ends
    for (long long frames = 0; (frames = reader.next()) > 0; ++bin) {
        limited.take(reader.result(), reader.original(), frames, peaks_near(limit.bins, bin));
        progress(static_cast<double>(bin) / static_cast<double>(limit.bins.size()));
    }
    limited.finish();
}

}  // namespace quorvane
