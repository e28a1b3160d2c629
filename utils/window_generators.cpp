#include "utils/window_generators.h"

#include <cmath>
#include <cstddef>
#include <numbers>

namespace ORVEL::UTILS {

void generateTriangleWindow(std::vector<float>& window) {
  const std::size_t length = window.size();
  const std::size_t half = length / 2;
  const auto divisor = static_cast<double>(length);
  for (std::size_t n = 0; n < half; ++n) {
    const double ramp = 2.0 * static_cast<double>(n) / divisor;
    window[n] = static_cast<float>(ramp);
    window[half + n] = static_cast<float>(1.0 - ramp);
  }
  if (length % 2 == 1) {
    window[length - 1] = 0.0F;
  }
}

void generateHammingWindow(std::vector<float>& window) {
  const double divisor = static_cast<double>(window.size()) - 1.0;
  for (std::size_t n = 0; n < window.size(); ++n) {
    const double angle = 2.0 * std::numbers::pi * static_cast<double>(n) / divisor;
    window[n] = static_cast<float>(0.54 - 0.46 * std::cos(angle));
  }
}

void generateVorbisWindow(std::vector<float>& window) {
  const auto divisor = static_cast<double>(window.size());
  for (std::size_t n = 0; n < window.size(); ++n) {
    const double inner = std::sin(std::numbers::pi * static_cast<double>(n) / divisor);
    window[n] = static_cast<float>(std::sin(std::numbers::pi / 2.0 * inner * inner));
  }
}

}  // namespace ORVEL::UTILS
