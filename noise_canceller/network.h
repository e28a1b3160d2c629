#pragma once

#include <cstddef>

namespace ORVEL::NOISE_CANCELLER {

/** A network that is evaluated once per hop; allocates nothing after construction. */
class Network {
 public:
  Network() = default;
  Network(const Network&) = delete;
  Network& operator=(const Network&) = delete;
  virtual ~Network() = default;

  virtual std::size_t inputs() const = 0;
  virtual std::size_t outputs() const = 0;
  /** Reads inputs() values and writes outputs() values. */
  virtual void evaluate(const float* input, float* output) = 0;
};

/** Linear branch plus the rectified non-linear branch, both `count` values; y may be `linear`. */
inline void addRectified(const float* nonLinear, const float* linear, float* y, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) {
    // Without a branch, whose outcome nobody could foretell.
    const float rectified = nonLinear[i] >= 0.0F ? nonLinear[i] : 0.0F;
    y[i] = linear[i] + rectified;
  }
}

}  // namespace ORVEL::NOISE_CANCELLER
