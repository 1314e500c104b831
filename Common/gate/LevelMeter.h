#pragma once

#include <sndfile.h>

#include <boost/shared_array.hpp>
#include <boost/shared_ptr.hpp>
#include <string>

namespace gate {

/**
 * Running energy (sum of squares) of the last N samples of one channel. Copies share the ring.
 *
 * The sum takes in each new square and gives up the oldest one. In floating point the two do not
 * cancel exactly: after a loud passage an error of some epsilons of its energy remains and may be
 * negative. The thresholds are far above such errors. To sum the whole ring for each sample would
 * give other bits and cost N times as much.
 */
class CLevelMeter {
  public:
    /** size: N, at least 1. The ring holds nothing until it is initialised. */
    explicit CLevelMeter(int size);

    /** Fills the ring with N samples and returns their energy. */
    double initialize(const double* samples);

    /**
     * Fills the ring with the next N samples of a file of the given channel count and seeks back
     * over them; file names it in errors. Returns 1.0 when fewer came, else the ring's energy.
     * Throws ss_sf_seek_error.
     */
    double initialize(const boost::shared_ptr<SNDFILE>& handle,
                      const std::string& file,
                      int channels);

    /**
     * Takes in one sample and returns the energy of the last N. The order of the operations, give
     * up, then take in, decides about the last bits. The gate itself meters channels in pairs
     * (PairMeter); this form for one channel stays as the meter's interface, and the tests compare
     * the gate with it.
     */
    double update(double x) {
        sum_ -= *write_ * *write_;
        *write_ = x;
        sum_ += x * x;
        write_ = write_ == last_ ? ring_.get() : write_ + 1;
        level_ = sum_;
        return sum_;
    }

    double level() const { return level_; }

    int size() const { return size_; }

    /** The ring's N samples, after initialize in their order. */
    const double* samples() const { return ring_.get(); }

  private:
    double level_ = 0.0;
    int size_;
    boost::shared_array<double> ring_;
    double* write_;
    double* last_;
    double sum_ = 0.0;
};

}  // namespace gate
