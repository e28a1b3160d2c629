#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "noise_canceller/cleaner_versions.h"
#include "utils/fft.h"
#include "utils/window_generators.h"
#include "weights/weight.h"

/** Windows and transforms, made once per weight set and shared by its cleaners on any thread. */
namespace ORVEL::NOISE_CANCELLER {

using SharedWindow = std::shared_ptr<const std::vector<float>>;

inline SharedWindow obtainWindow(const WEIGHTS::Weight& weight, WindowKind kind,
                                 std::size_t length) {
  const std::string name = std::to_string(static_cast<int>(kind)) + " " + std::to_string(length);
  return weight.obtain<std::vector<float>>("window " + name, [&] {
    std::vector<float> window(length, 0.0F);
    switch (kind) {
      case WindowKind::kHamming:
        UTILS::generateHammingWindow(window);
        break;
      case WindowKind::kTriangle:
        UTILS::generateTriangleWindow(window);
        break;
      case WindowKind::kVorbis:
        UTILS::generateVorbisWindow(window);
        break;
    }
    return window;
  });
}

inline std::shared_ptr<UTILS::FFT> obtainFFT(const WEIGHTS::Weight& weight, std::size_t length) {
  return *weight.obtain<std::shared_ptr<UTILS::FFT>>(
      std::to_string(length), [&] { return UTILS::createFFT(static_cast<unsigned>(length)); });
}

}  // namespace ORVEL::NOISE_CANCELLER
