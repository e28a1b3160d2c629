// The stages of one hop, each on its own, at the sizes that sessions have.
#include <benchmark/benchmark.h>

#include <complex>
#include <memory>
#include <random>
#include <vector>

#include "noise_canceller/gain_chain.h"
#include "noise_canceller/network_input.h"
#include "noise_canceller/spectral_features.h"
#include "noise_canceller/synthesis.h"
#include "noise_canceller/vad_features.h"
#include "orv-sdk/frame_resampler.h"
#include "utils/arithmetic.h"
#include "utils/fft.h"
#include "utils/window_generators.h"

namespace {

using namespace ORVEL;
using namespace ORVEL::NOISE_CANCELLER;

std::vector<float> noise(std::size_t count, float level) {
  std::mt19937 random(1);
  std::uniform_real_distribution<float> value(-level, level);
  std::vector<float> samples(count);
  for (float& sample : samples)
    sample = value(random);
  return samples;
}

std::vector<float> gains(std::size_t count) {
  std::vector<float> values = noise(count, 0.5F);
  for (float& value : values)
    value += 0.5F;
  return values;
}

// 32 ms frames, all bins in the band.
FrameParameters frameAt(std::int64_t rate) {
  const auto length = static_cast<std::size_t>(rate) * 32 / 1000;
  return {.sampleRate = static_cast<std::size_t>(rate),
          .frameLength = length,
          .step = length / 2,
          .bandBegin = 0,
          .bandEnd = length / 2,
          .previewFrames = 6,
          .coefficientNumber = length / 2 + 1};
}

Spectrum spectrumOf(const FrameParameters& frame) {
  Spectrum spectrum(frame.coefficientNumber);
  UTILS::createFFT(static_cast<unsigned>(frame.frameLength))
      ->forward(noise(frame.frameLength, 8000.0F), spectrum);
  return spectrum;
}

void window(benchmark::State& state) {
  const FrameParameters frame = frameAt(state.range(0));
  const std::vector<float> samples = noise(frame.frameLength, 8000.0F);
  std::vector<float> shape(frame.frameLength);
  std::vector<float> out(frame.frameLength);
  UTILS::generateVorbisWindow(shape);
  for (auto _ : state) {
    UTILS::multiply(samples.data(), shape.data(), out.data(), out.size());
    benchmark::DoNotOptimize(out.data());
  }
}

void forwardTransform(benchmark::State& state) {
  const FrameParameters frame = frameAt(state.range(0));
  const std::vector<float> samples = noise(frame.frameLength, 8000.0F);
  Spectrum spectrum(frame.coefficientNumber);
  const auto fft = UTILS::createFFT(static_cast<unsigned>(frame.frameLength));
  for (auto _ : state)
    benchmark::DoNotOptimize(fft->forward(samples, spectrum));
}

void backwardTransform(benchmark::State& state) {
  const FrameParameters frame = frameAt(state.range(0));
  const Spectrum spectrum = spectrumOf(frame);
  std::vector<float> samples(frame.frameLength);
  const auto fft = UTILS::createFFT(static_cast<unsigned>(frame.frameLength));
  for (auto _ : state)
    benchmark::DoNotOptimize(fft->backward(spectrum, samples));
}

void computeFeatures(benchmark::State& state, SpectralFeatures& features,
                     const FrameParameters& frame) {
  const std::vector<float> samples = noise(frame.frameLength, 8000.0F);
  const Spectrum spectrum = spectrumOf(frame);
  std::vector<float> out(features.size());
  for (auto _ : state) {
    features.compute(samples.data(), spectrum, out.data());
    benchmark::DoNotOptimize(out.data());
  }
}

void magnitudeFeatures(benchmark::State& state) {
  const FrameParameters frame = frameAt(state.range(0));
  SpectralFeatures features(frame, std::nullopt, nullptr);
  computeFeatures(state, features, frame);
}

void bandFeatures(benchmark::State& state) {
  const FrameParameters frame = frameAt(state.range(0));
  SpectralFeatures features(frame, RescaleSettings{},
                            std::make_shared<BandCompression>(frame.bandWidth(), 2));
  computeFeatures(state, features, frame);
}

void voiceFeatures(benchmark::State& state) {
  const Spectrum spectrum(kVadBins, {3000.0F, 4000.0F});
  std::array<float, kVadFeatures> out{};
  for (auto _ : state) {
    computeVadFeatures(spectrum, out);
    benchmark::DoNotOptimize(out.data());
  }
}

void networkInput(benchmark::State& state) {
  const FrameParameters frame = frameAt(state.range(0));
  const std::size_t width = frame.bandWidth();
  const std::size_t inputs = width * frame.previewFrames;
  NetworkInput input(width, frame.previewFrames, 0, noise(inputs, 8.0F), gains(inputs),
                     NetworkInput::Statistics::kPerInput);
  const std::vector<float> features = noise(width, 8.0F);
  for (auto _ : state) {
    std::copy(features.begin(), features.end(), input.nextFrame());
    benchmark::DoNotOptimize(input.normalised(nullptr));
  }
}

void noiseAverage(benchmark::State& state) {
  const FrameParameters frame = frameAt(state.range(0));
  NoiseAverage average(frame, 20);
  const Spectrum spectrum = spectrumOf(frame);
  const std::vector<float> values = gains(frame.coefficientNumber);
  for (auto _ : state) {
    average.update(spectrum, values);
    benchmark::DoNotOptimize(average.values());
  }
}

void shapeGains(benchmark::State& state, const GainSettings& settings) {
  const FrameParameters frame = frameAt(state.range(0));
  GainChain chain(settings, RmThresholdOrder::kGainFirst, frame);
  const std::vector<float> mask = gains(frame.bandWidth());
  const std::vector<float> samples = noise(frame.frameLength, 8000.0F);
  for (auto _ : state) {
    chain.measure(samples.data());
    std::copy(mask.begin(), mask.end(), chain.band());
    benchmark::DoNotOptimize(chain.shape().data());
  }
}

void plainGains(benchmark::State& state) { shapeGains(state, {}); }

void allGainStages(benchmark::State& state) {
  shapeGains(state, {.smoothing = 0.5F,
                     .softModification = true,
                     .squareHighFrequencies = true,
                     .thresholdCut = true,
                     .rmThreshold = true});
}

void synthesis(benchmark::State& state) {
  const FrameParameters frame = frameAt(state.range(0));
  auto shape = std::make_shared<std::vector<float>>(frame.frameLength);
  UTILS::generateVorbisWindow(*shape);
  Synthesis stage(UTILS::createFFT(static_cast<unsigned>(frame.frameLength)),
                  {.window = shape, .volume = 1.0, .clipFix = {}}, frame);
  const Spectrum spectrum = spectrumOf(frame);
  const std::vector<float> values = gains(frame.coefficientNumber);
  for (auto _ : state)
    benchmark::DoNotOptimize(stage.synthesise(spectrum, values));
}

// 10 ms from one rate to another.
void resampler(benchmark::State& state) {
  ResamplerCache cache;
  const auto inSize = static_cast<std::size_t>(state.range(0)) / 100;
  const auto outSize = static_cast<std::size_t>(state.range(1)) / 100;
  FrameResampler stage(cache, inSize, outSize);
  const std::vector<float> in = noise(inSize, 8000.0F);
  std::vector<float> out;
  for (auto _ : state)
    benchmark::DoNotOptimize(stage.process(in, out));
}

void forModelRates(benchmark::internal::Benchmark* stage) {
  stage->ArgName("rate")->Arg(8000)->Arg(16000)->Arg(32000);
}

BENCHMARK(window)->Apply(forModelRates);
BENCHMARK(forwardTransform)->Apply(forModelRates);
BENCHMARK(magnitudeFeatures)->Apply(forModelRates);
BENCHMARK(bandFeatures)->Apply(forModelRates);
BENCHMARK(voiceFeatures);
BENCHMARK(networkInput)->Apply(forModelRates);
BENCHMARK(noiseAverage)->Apply(forModelRates);
BENCHMARK(plainGains)->Apply(forModelRates);
BENCHMARK(allGainStages)->Apply(forModelRates);
BENCHMARK(backwardTransform)->Apply(forModelRates);
BENCHMARK(synthesis)->Apply(forModelRates);
BENCHMARK(resampler)
    ->ArgNames({"from", "to"})
    ->Args({8000, 16000})
    ->Args({48000, 16000})
    ->Args({16000, 48000})
    ->Args({48000, 32000})
    ->Args({44100, 16000})
    ->Args({16000, 44100});

}  // namespace
