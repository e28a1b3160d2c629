#include "noise_canceller/generated_objects.h"

#include "utils/window_generators.h"

namespace ORVEL::NOISE_CANCELLER {

namespace {

SharedWindow obtainWindow(CONTAINERS::AnyMap& keys, const char* name, std::size_t length,
                          void (*generate)(std::vector<float>&)) {
  return obtainGenerated<std::vector<float>>(keys, name, [&] {
    std::vector<float> window(length, 0.0F);
    generate(window);
    return window;
  });
}

}  // namespace

SharedWindow obtainHammingWindow(CONTAINERS::AnyMap& keys, std::size_t length) {
  return obtainWindow(keys, "GEN_HammingWindow", length, UTILS::generateHammingWindow);
}

SharedWindow obtainTriangleWindow(CONTAINERS::AnyMap& keys, std::size_t length) {
  return obtainWindow(keys, "GEN_TriangleWindow", length, UTILS::generateTriangleWindow);
}

SharedWindow obtainVorbisWindow(CONTAINERS::AnyMap& keys, std::size_t length) {
  return obtainWindow(keys, "GEN_VorbisWindow", length, UTILS::generateVorbisWindow);
}

std::shared_ptr<UTILS::FFT> obtainFFT(CONTAINERS::AnyMap& keys, std::size_t length) {
  return *obtainGenerated<std::shared_ptr<UTILS::FFT>>(
      keys, "GEN_FFTCalculator", [&] { return UTILS::createFFT(static_cast<unsigned>(length)); });
}

}  // namespace ORVEL::NOISE_CANCELLER
