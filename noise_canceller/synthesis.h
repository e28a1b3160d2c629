#pragma once

#include <memory>
#include <vector>

#include "noise_canceller/shared_transforms.h"
#include "noise_canceller/spectral_features.h"

namespace ORVEL::NOISE_CANCELLER {

struct ClipFixSettings {
  bool enabled = false;
  float point = 25000.0F;
};

/** Settings of a version's way back to the time domain. */
struct SynthesisSettings {
  /** Window over the output frame; empty where the version has none. */
  SharedWindow window;
  /** Factor on the samples before the window. */
  double volume = 1.0;
  ClipFixSettings clipFix;
};

/** Masked spectrum to output frame: inverse transform, volume, window, clip fix. */
class Synthesis {
 public:
  Synthesis(std::shared_ptr<UTILS::FFT> fft, SynthesisSettings settings,
            const FrameParameters& frame);

  /** From the next hop on no gain is below this; 0 switches the floor off. */
  void setGainFloor(float gain) { gainFloor_ = gain; }

  /** The output frame of the spectrum times the gains, or nothing when the transform fails. */
  const float* synthesise(const Spectrum& spectrum, const std::vector<float>& gains);

 private:
  void fixClipping();

  std::shared_ptr<UTILS::FFT> fft_;
  SynthesisSettings settings_;
  float gainFloor_ = 0.0F;
  Spectrum masked_;
  std::vector<float> frame_;
};

}  // namespace ORVEL::NOISE_CANCELLER
