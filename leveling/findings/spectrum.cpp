#include "leveling/findings/spectrum.h"

#include "Common/audio/wide_loops.h"
#include "leveling/audio/portable_math.h"

namespace quorvane {
namespace {

/** Butterflies of one factor: what stands `stride` apart belongs to one of many transforms. */
QUORVANE_WIDE_LOOP
void combine(const float* a_real,
             const float* a_imaginary,
             const float* b_real,
             const float* b_imaginary,
             float cosine,
             float sine,
             std::size_t stride,
             float* real,
             float* imaginary) {
    for (std::size_t i = 0; i < stride; ++i) {
        const float sum_real = a_real[i] + b_real[i];
        const float sum_imaginary = a_imaginary[i] + b_imaginary[i];
        const float away_real = a_real[i] - b_real[i];
        const float away_imaginary = a_imaginary[i] - b_imaginary[i];
        real[i] = sum_real;
        imaginary[i] = sum_imaginary;
        real[stride + i] = away_real * cosine - away_imaginary * sine;
        imaginary[stride + i] = away_real * sine + away_imaginary * cosine;
    }
}

QUORVANE_WIDE_LOOP
void weigh(const float* samples, const float* window, std::size_t count, float* to) {
    for (std::size_t i = 0; i < count; ++i) {
        to[i] = samples[i] * window[i];
    }
}

/** All butterflies of the first factor, whose stride is 1. */
QUORVANE_WIDE_LOOP
void combine_first(const float* from_real,
                   const float* from_imaginary,
                   const float* cosine,
                   const float* sine,
                   std::size_t half,
                   float* real,
                   float* imaginary) {
    for (std::size_t i = 0; i < half; ++i) {
        const float away_real = from_real[i] - from_real[half + i];
        const float away_imaginary = from_imaginary[i] - from_imaginary[half + i];
        real[2 * i] = from_real[i] + from_real[half + i];
        imaginary[2 * i] = from_imaginary[i] + from_imaginary[half + i];
        real[2 * i + 1] = away_real * cosine[i] - away_imaginary * sine[i];
        imaginary[2 * i + 1] = away_real * sine[i] + away_imaginary * cosine[i];
    }
}

}  // namespace

Spectrum::Spectrum(std::size_t size)
    : size_(size),
      window_(size),
      cosine_(size / 2),
      sine_(size / 2),
      real_(size),
      imaginary_(size),
      next_real_(size),
      next_imaginary_(size),
      power_(size / 2 + 1) {
    const auto whole = static_cast<double>(size);
    for (std::size_t i = 0; i < size; ++i) {
        const double turns = 2 * static_cast<double>(i) / whole;
        window_[i] = static_cast<float>(0.5 - 0.5 * portable_sin_pi(turns + 0.5));
        if (i < size / 2) {
            cosine_[i] = static_cast<float>(portable_sin_pi(turns + 0.5));
            sine_[i] = static_cast<float>(-portable_sin_pi(turns));
        }
    }
}

void Spectrum::take(const float* first, const float* second) {
    weigh(first, window_.data(), size_, real_.data());
    weigh(second, window_.data(), size_, imaginary_.data());
    combine_first(real_.data(), imaginary_.data(), cosine_.data(), sine_.data(), size_ / 2,
                  next_real_.data(), next_imaginary_.data());
    real_.swap(next_real_);
    imaginary_.swap(next_imaginary_);
    for (std::size_t stride = 2; stride < size_; stride *= 2) {
        const std::size_t groups = size_ / 2 / stride;
        for (std::size_t group = 0; group < groups; ++group) {
            const std::size_t a = group * stride;
            const std::size_t b = a + size_ / 2;
            combine(&real_[a], &imaginary_[a], &real_[b], &imaginary_[b], cosine_[a], sine_[a],
                    stride, &next_real_[2 * a], &next_imaginary_[2 * a]);
        }
        real_.swap(next_real_);
        imaginary_.swap(next_imaginary_);
    }
    // Of a Hann window the mean square is 3/8; both halves of the spectrum hold the power.
    const float scale = 1.0F / (0.375F * static_cast<float>(size_) * static_cast<float>(size_));
    for (std::size_t k = 0; k <= size_ / 2; ++k) {
        const std::size_t mirror = (size_ - k) % size_;
        power_[k] =
            scale * (real_[k] * real_[k] + imaginary_[k] * imaginary_[k] +
                     real_[mirror] * real_[mirror] + imaginary_[mirror] * imaginary_[mirror]);
    }
}

}  // namespace quorvane
