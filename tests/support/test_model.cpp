#include "tests/support/test_model.h"

#include <algorithm>
#include <cmath>
#include <random>
#include <stdexcept>

#include "tests/support/versions.h"

namespace orvel_test {

using ORVEL::NOISE_CANCELLER::findCleanerVersion;
using ORVEL::NOISE_CANCELLER::NetworkKind;

namespace {

class Random {
 public:
  explicit Random(unsigned seed) : engine_(seed) {}
  // Uniform and centred: enough for weights, and the same on every standard library.
  float around(float centre, float spread) {
    const double unit = static_cast<double>(engine_()) / 4294967295.0;
    return static_cast<float>(centre + spread * (2.0 * unit - 1.0));
  }
  Floats floats(int count, float centre, float spread) {
    Floats values(count);
    for (float& value : values)
      value = around(centre, spread);
    return values;
  }
  Dense dense(int rows, int cols) {
    const float spread = 2.0F / std::sqrt(static_cast<float>(rows));
    return {static_cast<uint32_t>(rows), static_cast<uint32_t>(cols),
            floats(rows * cols, 0.0F, spread)};
  }

 private:
  std::mt19937 engine_;
};

void addLayers(TestModel& model, Random& random, int input, const std::vector<int>& hidden,
               int output) {
  int rows = input;
  std::vector<int> widths = hidden;
  widths.push_back(output);
  for (const int cols : widths) {
    model.linear.push_back(random.dense(rows, cols));
    model.nonLinear.push_back(random.dense(rows, cols));
    model.linearBias.push_back(random.floats(cols, 0.0F, 0.3F));
    model.nonLinearBias.push_back(random.floats(cols, 0.4F, 0.5F));
    model.multiplier.push_back(random.floats(cols, 1.0F, 0.4F));
    model.reducer.push_back(random.floats(cols, 0.0F, 0.3F));
    rows = cols;
  }
}

void setFrame(TestModel& model, int rate, int frameMs) {
  model.rate = rate;
  model.frameLength = rate * frameMs / 1000;
  model.step = model.frameLength / 2;
  model.bins = model.frameLength / 2 + 1;
}

// Values left after compressing n bands at a rate for which the bands end at n.
int compressedSize(int n, int compress) {
  const int singles = n >> compress;
  return singles + compress * singles / 2;
}

}  // namespace

const CleanerTraits& TestModel::traits() const {
  const CleanerTraits* known = findCleanerVersion(version);
  if (known == nullptr) throw std::invalid_argument("no cleaner of version " + version);
  return *known;
}

int TestModel::generation() const {
  const std::vector<const CleanerTraits*> cleaners = noiseCleaners();
  const auto own = std::find(cleaners.begin(), cleaners.end(), &traits());
  return own == cleaners.end() ? 0 : static_cast<int>(own - cleaners.begin()) + 1;
}

TestModel makeModel(const Shape& shape) {
  Random random(shape.seed);
  TestModel model;
  model.version = shape.version;
  setFrame(model, shape.rate, shape.frameMs);
  model.begin = shape.begin;
  model.end = shape.begin + shape.band;
  model.preview = shape.preview;
  model.nat = shape.nat;
  const CleanerTraits& traits = model.traits();
  const bool power = traits.compressesBands();
  const int compress = shape.compress < 0 ? static_cast<int>(traits.bandRate) : shape.compress;
  const int features = power ? compressedSize(shape.band, compress) : shape.band;
  int input = (shape.preview + (traits.averagesNoise ? 1 : 0)) * features;
  // Power features lie near ln(1e8), magnitudes near ln(1e4). Where the statistics repeat, a length that
  // is no multiple of the frame shows a wrong index.
  const int statistics = traits.repeatsStatistics ? features + 5 : input;
  model.mu = random.floats(statistics, power ? 17.0F : 8.0F, 1.5F);
  model.sd = random.floats(statistics, power ? 5.0F : 2.5F, 1.0F);
  if (traits.network == NetworkKind::kRecurrent) {
    const int state = shape.hidden.back();
    input += state;
    model.gru.push_back(random.dense(input, shape.gateWidth));
    model.gruBias.push_back(random.floats(shape.gateWidth, 0.0F, 0.5F));
  }
  addLayers(model, random, input, shape.hidden, features);
  return model;
}

TestModel makeFlatModel(const std::string& version, int rate, int frameMs, float bias) {
  TestModel model;
  model.version = version;
  setFrame(model, rate, frameMs);
  model.end = model.bins;
  model.preview = 1;
  model.nat = 1;
  const int input = (model.traits().averagesNoise ? 2 : 1) * model.bins;
  model.mu.assign(input, 0.0F);
  model.sd.assign(input, 1.0F);
  const Dense zero{static_cast<uint32_t>(input), static_cast<uint32_t>(model.bins),
                   Floats(static_cast<size_t>(input) * model.bins, 0.0F)};
  model.linear = model.nonLinear = {zero};
  model.nonLinearBias = {Floats(model.bins, bias)};
  return model;
}

TestModel makeVadModel(int rate, bool calibrated, int gateWidth, unsigned seed) {
  constexpr int kFeatures = 61;
  constexpr int kState = 10;
  Random random(seed);
  TestModel model;
  model.version = "VAD_0.0.1";
  model.rate = rate;
  model.frameLength = 240;
  model.mu = random.floats(kFeatures, 16.0F, 1.0F);
  model.sd = random.floats(kFeatures, 9.0F, 4.0F);
  const int input = kState + 4 * kFeatures;
  model.gru.push_back(random.dense(input, gateWidth));
  model.gruBias.push_back(random.floats(gateWidth, 0.0F, 0.5F));
  addLayers(model, random, input, {kState}, 2);
  if (calibrated) {
    model.minMax = {-2.5F, 3.0F};
    model.bestF1 = {0.4F};
  }
  return model;
}

WeightBuilder TestModel::weights() const {
  WeightBuilder out;
  out.text("Version", version).integer("SampleRate", rate).integer("FrameLength", frameLength);
  out.floats("MU", mu).floats("SD", sd);
  out.matrices("WeightLinear", linear).matrices("WeightNonLinear", nonLinear);
  out.lists("BaesLinear", linearBias).lists("BaesNonLinear", nonLinearBias);
  if (traits().network == NetworkKind::kRecurrent) {
    out.matrices("WeightGRU", gru).lists("BaesGRU", gruBias);
  }
  if (isDetector(traits())) {
    if (!minMax.empty()) out.floats("Test_MINMAX", minMax).floats("Test_BestF1", bestF1);
    return out;
  }
  out.integer("Step", step).integer("FiltrBegin", begin).integer("FiltrEnd", end);
  out.integer("PreviewFrames", preview).integer("CoefficientNumber", bins);
  if (traits().averagesNoise) {
    out.integer("NATFrameCount", nat);
    out.lists("HeadenMultiplier", multiplier).lists("HeadenReducer", reducer);
  }
  return out;
}

}  // namespace orvel_test
