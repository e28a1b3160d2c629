#include "noise_canceller/masking_cleaner.h"

#include <algorithm>
#include <cstdint>
#include <utility>

#include "noise_canceller/tuning_values.h"
#include "utils/arithmetic.h"

namespace ORVEL::NOISE_CANCELLER {

namespace {

GainSettings gainSettings(const TuningValues& keys) {
  return {
      .smoothing = keys.number(Key::kSmoothing),
      .softModification = keys.on(Key::kSoftModification),
      .squareHighFrequencies = keys.on(Key::kSquareHighFrequencies),
      .thresholdCut = keys.on(Key::kThresholdCut),
      .thresholdCutReference = keys.number(Key::kThresholdCutReference),
      .rmThreshold = keys.on(Key::kRmThreshold),
      .rmThresholdValue = keys.number(Key::kRmThresholdValue),
  };
}

SharedWindow synthesisWindow(const WEIGHTS::Weight& weight, const CleanerTraits& version,
                             const TuningValues& keys, std::size_t length) {
  if (version.choosesWindowAfter && !keys.on(Key::kWindowAfter)) {
    return nullptr;
  }
  const bool isHamming = keys.on(Key::kWindowAfterKind);
  return obtainWindow(weight, isHamming ? WindowKind::kHamming : version.synthesisWindow, length);
}

SynthesisSettings synthesisSettings(const TuningValues& keys, SharedWindow window) {
  return {
      .window = std::move(window),
      .volume = keys.number(Key::kVolumeUpPercent) / 100.0 + 1.0,
      .clipFix = {.enabled = keys.on(Key::kClipFix), .point = keys.number(Key::kClipFixPoint)},
  };
}

std::optional<RescaleSettings> rescaleSettings(const TuningValues& keys) {
  if (!keys.on(Key::kRescale)) {
    return std::nullopt;
  }
  return RescaleSettings{.referenceAmplitude = keys.number(Key::kRescaleAmplitude),
                         .referenceEnergy = keys.number(Key::kRescaleEnergy)};
}

// `features`: values per frame of the history; `outputs`: values of the mask.
std::shared_ptr<const NetworkWeights> networkWeights(const WEIGHTS::Weight& weight,
                                                     const CleanerTraits& version,
                                                     const FrameParameters& frame,
                                                     std::size_t features) {
  const std::size_t frames = frame.previewFrames + (version.averagesNoise ? 1 : 0);
  if (version.network == NetworkKind::kRecurrent) {
    return NetworkWeights::recurrent(weight, frames * features, NetworkWeights::Output::kSigmoid);
  }
  return NetworkWeights::feedForward(weight, frames * features, features,
                                     version.network == NetworkKind::kScaledFeedForward);
}

// Compared by their bits: with denormals taken as zero a faint signal would compare equal to silence.
bool isDigitalSilence(const std::vector<float>& samples) {
  return std::all_of(samples.begin(), samples.end(), [](float sample) {
    constexpr std::uint32_t kSign = 0x80000000U;
    return (__builtin_bit_cast(std::uint32_t, sample) & ~kSign) == 0;
  });
}

}  // namespace

MaskingCleaner::Stages MaskingCleaner::makeStages(const WEIGHTS::Model& model,
                                                  const CleanerTraits& version) {
  const WEIGHTS::Weight& weight = *model.weight;
  const WeightParameters weights(weight);
  weights.require(version.parameters);
  const FrameParameters frame = FrameParameters::read(weights);
  const std::size_t noiseFrames = version.averagesNoise ? weights.count("NATFrameCount") : 0;
  std::shared_ptr<const NetworkWeights> network;
  if (version.networkBeforeKeys) {
    network = networkWeights(weight, version, frame, frame.bandWidth());
  }

  const TuningValues keys = TuningValues::read(model, version);
  std::shared_ptr<const BandCompression> bands;
  if (version.compressesBands()) {
    bands = std::make_shared<BandCompression>(frame.bandWidth(), keys.whole(Key::kCompressRate));
  }
  const std::size_t features = bands != nullptr ? bands->bands() : frame.bandWidth();
  if (network == nullptr) {
    network = networkWeights(weight, version, frame, features);
  }

  const auto fft = obtainFFT(weight, frame.frameLength);
  const std::size_t appended = version.averagesNoise ? features : 0;
  NetworkInput input(features, frame.previewFrames, appended, weights.vector("MU"),
                     weights.vector("SD"),
                     version.repeatsStatistics ? NetworkInput::Statistics::kRepeating
                                               : NetworkInput::Statistics::kPerInput);
  std::optional<NoiseAverage> noiseAverage;
  if (version.averagesNoise) {
    noiseAverage.emplace(frame, noiseFrames);
  }
  return {
      .frame = frame,
      .fft = fft,
      .analysisWindow = obtainWindow(weight, version.analysisWindow, frame.frameLength),
      .features = SpectralFeatures(frame, rescaleSettings(keys), bands),
      .input = std::move(input),
      .noiseAverage = std::move(noiseAverage),
      .network = Network(std::move(network)),
      .expansion = bands,
      .gains = GainChain(gainSettings(keys), version.rmThresholdOrder, frame),
      .synthesis = Synthesis(
          fft, synthesisSettings(keys, synthesisWindow(weight, version, keys, frame.frameLength)),
          frame),
      .masksUnwindowedFrame = version.choosesWindowAfter && keys.on(Key::kWindowAfter),
      .skipsSilence = keys.on(Key::kSkipSilence),
  };
}

MaskingCleaner::MaskingCleaner(const WEIGHTS::Model& model, const CleanerTraits& version,
                               int sessionFrameMs)
    : MaskingCleaner(model, makeStages(model, version), sessionFrameMs) {}

MaskingCleaner::MaskingCleaner(const WEIGHTS::Model& model, Stages stages, int sessionFrameMs)
    : NoiseCleaner(model.weight),
      stages_(std::move(stages)),
      overlapAdd_(stages_.frame, sessionFrameMs),
      windowed_(stages_.frame.frameLength),
      spectrum_(stages_.frame.coefficientNumber),
      unwindowedSpectrum_(stages_.masksUnwindowedFrame ? stages_.frame.coefficientNumber : 0),
      mask_(stages_.network.outputs()) {
  requireSize("the network's input", stages_.network.inputs(), "the features' length",
              stages_.input.size());
  requireSize("the network's output", mask_.size(), "the mask's length", stages_.features.size());
}

void MaskingCleaner::begin(const std::vector<float>& samples) {
  skipping_ = stages_.skipsSilence && isDigitalSilence(samples);
  succeeded_ = true;
  overlapAdd_.append(samples);
}

int MaskingCleaner::deliver(std::vector<float>& samples) {
  overlapAdd_.deliver(samples);
  return succeeded_ ? 1 : -1;
}

void MaskingCleaner::reset() {
  overlapAdd_.reset();
  stages_.features.reset();
  stages_.input.reset();
  if (stages_.noiseAverage.has_value()) {
    stages_.noiseAverage->reset();
  }
  stages_.network.reset();
  stages_.gains.reset();
}

bool MaskingCleaner::analyse(const float* frame) {
  UTILS::multiply(frame, stages_.analysisWindow->data(), windowed_.data(), windowed_.size());
  stages_.gains.measure(windowed_.data());
  if (!stages_.fft->forward(windowed_, spectrum_)) {
    return false;
  }
  stages_.features.compute(frame, spectrum_, stages_.input.nextFrame());
  return true;
}

std::optional<Network::Task> MaskingCleaner::prepareHop() {
  const float* frame = overlapAdd_.frame();
  if (frame == nullptr) {
    return std::nullopt;
  }
  analysed_ = analyse(frame);
  if (!analysed_) {
    return Network::Task{};
  }
  const float* average =
      stages_.noiseAverage.has_value() ? stages_.noiseAverage->values() : nullptr;
  const float* input = stages_.input.normalised(average);
  if (skipping_) {
    std::fill(mask_.begin(), mask_.end(), 1.0F);
    return Network::Task{};
  }
  return Network::Task{&stages_.network, input, mask_.data()};
}

void MaskingCleaner::finishHop() {
  const float* output = analysed_ ? synthesise(overlapAdd_.frame()) : nullptr;
  succeeded_ = succeeded_ && output != nullptr;
  overlapAdd_.addFrame(output);
}

// From the mask to the output frame; null when a transform fails.
const float* MaskingCleaner::synthesise(const float* frame) {
  if (stages_.expansion != nullptr) {
    stages_.expansion->expand(mask_.data(), stages_.gains.band());
  } else {
    std::copy(mask_.begin(), mask_.end(), stages_.gains.band());
  }
  const std::vector<float>& gains = stages_.gains.shape();
  if (stages_.noiseAverage.has_value()) {
    stages_.noiseAverage->update(spectrum_, gains);
  }
  if (!stages_.masksUnwindowedFrame) {
    return stages_.synthesis.synthesise(spectrum_, gains);
  }
  if (!stages_.fft->forward(frame, windowed_.size(), unwindowedSpectrum_.data(),
                            unwindowedSpectrum_.size())) {
    return nullptr;
  }
  return stages_.synthesis.synthesise(unwindowedSpectrum_, gains);
}

}  // namespace ORVEL::NOISE_CANCELLER
