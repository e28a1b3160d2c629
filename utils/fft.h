#pragma once

#include <complex>
#include <cstddef>
#include <memory>
#include <vector>

#include "utils/non_copyable.h"

namespace ORVEL::UTILS {

/**
 * Real-input FFT of one fixed length N with N/2 + 1 bins, index 0 the mean and N/2 Nyquist. The forward
 * transform is unscaled, the backward one divides by N, so that backward(forward(x)) = x.
 *
 * Immutable after creation: any number of threads may transform at once. Every transform gives true
 * on success and allocates nothing when the output has its final size.
 */
class FFT : public NonCopyMovable {
 public:
  virtual bool forward(const float* in, std::size_t inCount, std::complex<float>* out,
                       std::size_t outCount) = 0;
  /** `in` must hold N samples; `out` is resized to N/2 + 1. */
  virtual bool forward(const std::vector<float>& in, std::vector<std::complex<float>>& out) = 0;
  virtual bool backward(const std::complex<float>* in, std::size_t inCount, float* out,
                        std::size_t outCount) = 0;
  /** `in` must hold N/2 + 1 bins; `out` is resized to N. */
  virtual bool backward(const std::vector<std::complex<float>>& in, std::vector<float>& out) = 0;
  virtual ~FFT();
};

std::shared_ptr<FFT> createFFT(unsigned length);

}  // namespace ORVEL::UTILS
