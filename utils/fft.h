#pragma once

#include <complex>
#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "utils/non_copyable.h"
#include "utils/orvel_exception.h"

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
  virtual bool backward(const std::complex<float>* in, std::size_t inCount, float* out,
                        std::size_t outCount) = 0;
  virtual ~FFT() = default;

  /** `in` must hold N samples; `out` is resized to N/2 + 1. */
  bool forward(const std::vector<float>& in, std::vector<std::complex<float>>& out) {
    out.resize(in.size() / 2 + 1);
    return forward(in.data(), in.size(), out.data(), out.size());
  }
  /** `in` must hold N/2 + 1 bins; `out` is resized to N. */
  bool backward(const std::vector<std::complex<float>>& in, std::vector<float>& out) {
    out.resize(2 * (in.size() - 1));
    return backward(in.data(), in.size(), out.data(), out.size());
  }
};

/**
 * @param length even, at most 2048, without other prime factors than 2, 3 and 5.
 * @throws ORVEL_Exception with the reason when the transform cannot be prepared.
 */
std::shared_ptr<FFT> createFFT(unsigned length);

/** @throws ORVEL_Exception always: the transform of that length cannot be prepared. */
[[noreturn]] inline void refuseFFT(unsigned length, const std::string& reason) {
  const std::string message =
      "the transform of " + std::to_string(length) + " samples cannot be prepared: " + reason;
  throw ORVEL_Exception(message.c_str(), "utils/fft", 0, "createFFT");
}

}  // namespace ORVEL::UTILS
