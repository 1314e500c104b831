#pragma once

#include <cstddef>
#include <functional>
#include <future>
#include <sndfile.hh>
#include <string>

#include "leveling/audio/scan.h"
#include "leveling/facts/run_facts.h"

namespace quorvane {

/** What one reading of a file gives. */
struct Measurement {
    Loudness loudness;
    Scan scan;  // the peak to single precision
};

/** Sees the frames of a file, or of one half of it, while they are measured. */
class FrameObserver {
  public:
    FrameObserver() = default;
    FrameObserver(const FrameObserver&) = delete;
    FrameObserver& operator=(const FrameObserver&) = delete;
    virtual ~FrameObserver() = default;

    /** Called once, before the first frame. */
    virtual void begin(int channels, int sample_rate_hz) = 0;

    /** The next frames, interleaved, full scale 1.0. */
    virtual void add(const float* samples, std::size_t frames) = 0;
};

/**
 * Who sees the frames. A file that is measured in two halves shows the second one, and the first
 * ends with a tenth of a second then; the second observer does not begin where there is one part.
 */
struct Observers {
    FrameObserver* first = nullptr;
    FrameObserver* second = nullptr;
};

/**
 * Measures a whole audio file: integrated loudness, range and true peak after EBU R128, sample
 * peak, RMS, and the loudness over time in windows of 3 s centred on their time, at most about a
 * thousand of them. progress is called with 0 to 1. Throws std::runtime_error, naming the cause,
 * when the file cannot be read.
 */
Measurement measure(const std::string& path,
                    const std::function<void(double)>& progress,
                    Observers observers = {});

/** Opens a sound that is not a file; each handle has a position of its own. */
using OpenSound = std::function<SndfileHandle()>;

/** The same for such a sound. open is called before the first frame is read. */
Measurement measure(const OpenSound& open, const std::function<void(double)>& progress);

/** What the caller's thread does while a measurement is under way. */
enum class CallerThread {
    kBusy,    // works too, and needs a processor for itself
    kWaiting  // waits: the measurement may use several threads
};

/**
 * The same in threads of its own, with the same result. The file is opened before this returns;
 * what goes wrong later comes with the future.
 */
std::future<Measurement> measure_meanwhile(const std::string& path, CallerThread caller);
std::future<Measurement> measure_meanwhile(const OpenSound& open, CallerThread caller);

}  // namespace quorvane
