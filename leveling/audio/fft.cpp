#include "leveling/audio/fft.h"

#include <algorithm>
#include <utility>

#include "leveling/audio/portable_math.h"

namespace quorvane {

// The roots of unity come from portable functions, so that every machine has the same.
Fft::Fft(std::size_t size) : size_(size) {
    for (std::size_t k = 0; k < size / 2; ++k) {
        const double half_turns = 2 * static_cast<double>(k) / static_cast<double>(size);
        turns_.emplace_back(portable_sin_pi(half_turns + 0.5), -portable_sin_pi(half_turns));
    }
}

void Fft::forward(std::vector<std::complex<double>>& values) const {
    for (std::size_t i = 1, j = 0; i < size_; ++i) {
        std::size_t bit = size_ / 2;
        for (; (j & bit) != 0; bit /= 2) {
            j ^= bit;
        }
        j ^= bit;
        if (i < j) {
            std::swap(values[i], values[j]);
        }
    }
    for (std::size_t half = 1; half < size_; half *= 2) {
        const std::size_t stride = size_ / (2 * half);
        for (std::size_t begin = 0; begin < size_; begin += 2 * half) {
            for (std::size_t k = 0; k < half; ++k) {
                const std::complex<double> turn = turns_[k * stride];
                const std::complex<double> x = values[begin + half + k];
                // Written out: the operator also looks for infinities.
                const std::complex<double> turned(x.real() * turn.real() - x.imag() * turn.imag(),
                                                  x.real() * turn.imag() + x.imag() * turn.real());
                values[begin + half + k] = values[begin + k] - turned;
                values[begin + k] += turned;
            }
        }
    }
}

void Fft::inverse(std::vector<std::complex<double>>& values) const {
    forward(values);
    std::reverse(values.begin() + 1, values.end());
}

}  // namespace quorvane
