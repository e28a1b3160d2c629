#include "noise_canceller/vad_features.h"

#include <cmath>

namespace ORVEL::NOISE_CANCELLER {

namespace {

// A spectrum of 8n + 1 bins keeps one more single bin, so that the octaves come out even.
constexpr std::size_t kExtraSingle = kVadBins % 8 == 1 ? 1 : 0;
constexpr std::size_t kOctave = kVadBins / 4;
constexpr std::size_t kSingles = kOctave + kExtraSingle;

float power(std::complex<float> bin) { return bin.real() * bin.real() + bin.imag() * bin.imag(); }

}  // namespace

void computeVadFeatures(const std::vector<std::complex<float>>& spectrum,
                        std::array<float, kVadFeatures>& features) {
  std::size_t band = 0;
  std::size_t width = 1;
  std::size_t octave = kOctave;
  for (std::size_t bin = 0; bin < kVadBins; bin += width) {
    if (bin == kSingles) {
      width = 2;
    } else if (bin - kExtraSingle == 2 * octave && bin > kSingles) {
      width *= 2;
      octave *= 2;
    }
    float sum = 0.0F;
    for (std::size_t i = 0; i < width; ++i) {
      sum += power(spectrum[bin + i]);
    }
    const float mean = sum / static_cast<float>(width);
    features[band++] = static_cast<float>(std::log(static_cast<double>(mean) + 1.0));
  }
}

}  // namespace ORVEL::NOISE_CANCELLER
