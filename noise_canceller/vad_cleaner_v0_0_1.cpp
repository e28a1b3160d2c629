#include "noise_canceller/vad_cleaner_v0_0_1.h"

#include <mkl_vml.h>

#include <algorithm>
#include <cmath>
#include <string>

#include "noise_canceller/model_weights.h"
#include "noise_canceller/tuning_keys.h"
#include "utils/diagnostics.h"

namespace ORVEL::NOISE_CANCELLER {

namespace {

constexpr std::size_t kHistoryFrames = 4;
constexpr std::size_t kHistorySpans = 5;
constexpr std::size_t kHistoryLength = kHistoryFrames * kVadFeatures;
constexpr std::size_t kFrameLength = 2 * (kVadBins - 1);
constexpr int kBufferMs = 10;
constexpr float kVarianceFloor = 1e-7F;

void requireParameters(const WeightReader& weights) {
  weights.vector("MU");
  weights.vector("SD");
  weights.requireMatrices({"WeightLinear", "WeightNonLinear"});
  weights.requireVectors({"BaesLinear", "BaesNonLinear"});
  weights.requireMatrices({"WeightGRU"});
  weights.requireVectors({"BaesGRU"});
  weights.requireInts({"SampleRate", "FrameLength"});
  WEIGHTS::getWeightInfo(weights.weight());
  requireSize("FrameLength", weights.count("FrameLength"), "the detector's frame", kFrameLength);
}

const WEIGHTS::Weight& checked(const WEIGHTS::Weight& weight) {
  requireParameters(WeightReader(weight));
  return weight;
}

}  // namespace

VadCleaner_v0_0_1::VadCleaner_v0_0_1(WEIGHTS::Model& model, int sessionFrameMs)
    : NoiseCleaner(model.weight),
      calibration_(checked(*model.weight)),
      network_(
          makeRecurrentNetwork(model, kHistoryLength, RecurrentNetworkWeights::Output::kLinear)),
      window_(obtainHammingWindow(model.keys, kFrameLength)),
      fft_(obtainFFT(model.keys, kFrameLength)),
      buffer_(kFrameLength, 0.0F),
      windowed_(kFrameLength),
      spectrum_(kVadBins),
      history_(kVadFeatures * (kHistoryFrames + 1) * kHistorySpans),
      output_(network_->outputs()) {
  readStatistics(*model.weight);
  bool resets = false;
  TuningKeys(model.keys, "_v0_0_1").readSwitch("ORVEL_VAD_ENABLE_STATE_RESET", resets);
  if (resets) {
    stateReset_.emplace();
  }
  if (sessionFrameMs != kBufferMs) {
    UTILS::printErrorLine("ERROR FRAMEDURATIONS");
  }
  for (std::size_t i = 0; i < kHistoryFrames; ++i) {
    appendNormalised({});
  }
}

void VadCleaner_v0_0_1::readStatistics(const WEIGHTS::Weight& weight) {
  const WeightReader weights(weight);
  means_ = weights.vector("MU");
  const std::vector<float>& variances = weights.vector("SD");
  requireSize("the length of SD", variances.size(), "the length of MU", means_.size());
  if (means_.size() > kVadFeatures) {
    refuseWeights("the length of MU is " + std::to_string(means_.size()) +
                  ", the number of features is " + std::to_string(kVadFeatures));
  }
  for (const float variance : variances) {
    deviations_.push_back(std::sqrt(variance + kVarianceFloor));
  }
}

void VadCleaner_v0_0_1::shiftIn(const std::vector<float>& samples, float gain) {
  // A buffer longer than the frame leaves only its end.
  const std::size_t fresh = std::min(samples.size(), buffer_.size());
  const auto kept = static_cast<std::ptrdiff_t>(buffer_.size() - fresh);
  std::copy(buffer_.end() - kept, buffer_.end(), buffer_.begin());
  std::transform(samples.end() - static_cast<std::ptrdiff_t>(fresh), samples.end(),
                 buffer_.begin() + kept, [gain](float sample) { return sample * gain; });
}

void VadCleaner_v0_0_1::appendNormalised(const std::array<float, kVadFeatures>& features) {
  float* frame = history_.extend(kVadFeatures);
  std::copy(features.begin(), features.end(), frame);
  for (std::size_t i = 0; i < means_.size(); ++i) {
    frame[i] = (frame[i] - means_[i]) / deviations_[i];
  }
}

float VadCleaner_v0_0_1::evaluateHop() {
  vsMul(static_cast<MKL_INT>(kFrameLength), buffer_.data(), window_->data(), windowed_.data());
  fft_->forward(windowed_, spectrum_);
  std::array<float, kVadFeatures> features{};
  computeVadFeatures(spectrum_, features);
  history_.advance(kVadFeatures);
  appendNormalised(features);
  network_->evaluate(history_.data(), output_.data());
  if (stateReset_.has_value() && stateReset_->update(output_.front())) {
    network_->resetState();
  }
  return output_.front();
}

int VadCleaner_v0_0_1::process(std::vector<float>& samples) {
  const float gain = gain_.update(samples.data(), samples.size());
  shiftIn(samples, gain);
  const float score = calibration_.score(evaluateHop());
  samples.assign(1, score);
  return 1;
}

}  // namespace ORVEL::NOISE_CANCELLER
