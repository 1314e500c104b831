#pragma once

#include <sndfile.h>

#include <boost/scoped_array.hpp>
#include <map>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <utility>

#include "Common/bins/BinGrid.h"
#include "Common/bins/bin_meter.h"
#include "Common/stream/stream.h"
#include "Common/stream/write_taps.h"
#include "Common/units.h"

namespace level_engine {

/*
 * Bins that were measured while their recording was written. The meter is that of the measuring
 * pass and gets the samples as a reader of the file would decode them, so the results are the same
 * bit for bit. A step that finds the bins of its input here does not have to read the file.
 */

/** The bins of a recording, for one rule and one bin length. */
struct MeasuredBins {
    BinKind kind{};
    BinGrid grid{};
    int channels = 0;
    long long frames = 0;                 // of the recording
    boost::scoped_array<CBin> bins;       // grid.bins, as BinMeter gives them
    boost::scoped_array<double> squares;  // likewise
    bool complete = false;
};

class MeasuredRecordings {
  public:
    /** The table of the run on this thread. */
    static MeasuredRecordings& of_this_thread();

    /**
     * Attaches a meter to the next file that is written at path; info gives the sample rate,
     * channels and frames to expect. If that fails, or they differ, the reader measures the file.
     */
    template <class RmsRule>
    void expect(const std::string& path, const SF_INFO& info, int bin_ms);

    /** Null unless such bins of the whole recording that info describes are here. */
    MeasuredBins* find(const std::string& path,
                       BinKind kind,
                       int bin_frames,
                       const SF_INFO& info) const;

    void forget(const std::string& path) { measured_.erase(path); }

    void clear() { measured_.clear(); }

  private:
    template <class RmsRule>
    class WriteTap;

    /** Five hours of 50 ms bins, 12 MB. Longer recordings are measured by the step that needs the
     * bins, which frees them sooner. */
    static constexpr long long kMostBins = 360000;

    std::map<std::string, std::shared_ptr<MeasuredBins>> measured_;
};

/** A meter that does not report a failure: the file's reader meets the same and reports it. */
template <class RmsRule>
class MeasuredRecordings::WriteTap : public stream::Receiver {
  public:
    explicit WriteTap(std::shared_ptr<MeasuredBins> measured)
        : measured_(std::move(measured)),
          meter_("",
                 measured_->channels,
                 measured_->grid,
                 measured_->bins.get(),
                 measured_->squares.get()) {}

    void process(double* samples, long long frames) override {
        frames_ += frames;
        failed_ = failed_ || !succeeds([&] { meter_.process(samples, frames); });
    }

    void finish() override {
        failed_ = failed_ || !succeeds([&] { meter_.finish(); });
        measured_->complete = !failed_ && meter_.complete() && frames_ == measured_->frames;
    }

  private:
    template <class Work>
    static bool succeeds(const Work& work) {
        try {
            work();
            return true;
        } catch (const std::runtime_error&) {
            return false;
        }
    }

    std::shared_ptr<MeasuredBins> measured_;
    BinMeter<RmsRule> meter_;
    long long frames_ = 0;
    bool failed_ = false;
};

template <class RmsRule>
void MeasuredRecordings::expect(const std::string& path, const SF_INFO& info, int bin_ms) {
    const int bin_frames = ms_to_frames(bin_ms, info.samplerate);
    const long long bins = bin_frames < 1 ? 0 : ceildiv(info.frames, bin_frames);
    if (bins < 1 || bins > kMostBins) {
        return;
    }
    try {
        auto measured = std::make_shared<MeasuredBins>();
        measured->kind = RmsRule::kKind;
        measured->grid = {bin_frames, static_cast<int>(bins), static_cast<int>(bins) + 1};
        measured->channels = info.channels;
        measured->frames = info.frames;
        measured->bins.reset(new CBin[static_cast<std::size_t>(bins)]);
        measured->squares.reset(new double[static_cast<std::size_t>(bins)]);
        measured_[path] = measured;
        stream::WriteTaps::of_this_thread().attach(path,
                                                   std::make_unique<WriteTap<RmsRule>>(measured));
    } catch (const std::bad_alloc&) {
        forget(path);  // the reader measures by itself
    }
}

}  // namespace level_engine

using level_engine::MeasuredBins;
using level_engine::MeasuredRecordings;
