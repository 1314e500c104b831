#pragma once

#include <complex>
#include <cstddef>
#include <vector>

namespace quorvane {

/**
 * The discrete Fourier transform of so many values, a power of two (J. W. Cooley and J. W. Tukey,
 * "An algorithm for the machine calculation of complex Fourier series", Math. Comp. 19 (1965)). The
 * same bits on every build.
 */
class Fft {
  public:
    explicit Fft(std::size_t size);

    std::size_t size() const { return size_; }

    /** In place. The inverse is not divided by the size. */
    void forward(std::vector<std::complex<double>>& values) const;
    void inverse(std::vector<std::complex<double>>& values) const;

  private:
    std::size_t size_;
    std::vector<std::complex<double>> turns_;  // e^(-2 pi i k / size), for k up to half the size
};

}  // namespace quorvane
