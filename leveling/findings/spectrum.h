#pragma once

#include <cstddef>
#include <vector>

namespace quorvane {

/**
 * Power spectra of two real signals at once, their powers added: the two are the real and the
 * imaginary part of one Fourier transform (J. W. Cooley and J. W. Tukey, "An algorithm for the
 * machine calculation of complex Fourier series", Mathematics of Computation 19 (1965), in the
 * order of T. G. Stockham, which sorts as it goes). Single precision, with factors that are the
 * same on every build.
 */
class Spectrum {
  public:
    /** size: samples of a window, a power of two. */
    explicit Spectrum(std::size_t size);

    std::size_t size() const { return size_; }

    /**
     * Takes `size` samples of each signal under a window of J. von Hann. power()[k], for k up to
     * half the size, is such that the sum over a band is the mean square of what lies in it.
     */
    void take(const float* first, const float* second);

    const std::vector<float>& power() const { return power_; }

  private:
    std::size_t size_;
    std::vector<float> window_;
    std::vector<float> cosine_, sine_;  // of the angles -2 pi k / size
    std::vector<float> real_, imaginary_, next_real_, next_imaginary_;
    std::vector<float> power_;
};

}  // namespace quorvane
