#include "Common/bins/measured_bins.h"

namespace level_engine {

MeasuredRecordings& MeasuredRecordings::of_this_thread() {
    thread_local MeasuredRecordings recordings;
    return recordings;
}

MeasuredBins* MeasuredRecordings::find(const std::string& path,
                                       BinKind kind,
                                       int bin_frames,
                                       const SF_INFO& info) const {
    const auto found = measured_.find(path);
    if (found == measured_.end()) {
        return nullptr;
    }
    MeasuredBins& measured = *found->second;
    const bool agrees = measured.complete && measured.kind == kind &&
                        measured.grid.bin_frames == bin_frames &&
                        measured.channels == info.channels && measured.frames == info.frames;
    return agrees ? &measured : nullptr;
}

}  // namespace level_engine
