// Weight sets that fit together, and some that nearly do: reaches what random bytes do not, the
// sessions of models with odd frame lengths, bands, histories and layers.
#include <algorithm>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "fuzz/drive_model.h"
#include "fuzz/support.h"
#include "tests/support/versions.h"

namespace {

using orvel_test::Dense;
using orvel_test::Floats;
using orvel_test::TestModel;
using orvel_test::WeightBuilder;

// Takes numbers from the input until it is used up, then zeros.
class Choices {
 public:
  Choices(const std::uint8_t* data, std::size_t size) : data_(data), left_(size) {}
  unsigned byte() {
    if (left_ == 0) return 0;
    --left_;
    return *data_++;
  }
  // 0 to most.
  int upTo(int most) { return static_cast<int>(byte() + 256U * byte()) % (most + 1); }
  bool oneIn(int n) { return upTo(n - 1) == 1; }
  std::string restAsText() {
    std::string rest(orvel_fuzz::text(data_, left_));
    left_ = 0;
    return rest;
  }

 private:
  const std::uint8_t* data_;
  std::size_t left_;
};

constexpr int kModelRates[] = {8000, 16000, 32000};

TestModel chooseModel(Choices& choices) {
  const int rate = kModelRates[choices.upTo(2)];
  if (choices.oneIn(6)) {
    return orvel_test::makeVadModel(rate, choices.oneIn(2), choices.oneIn(2) ? 1 : 10,
                                    choices.byte());
  }
  static const auto versions = orvel_test::noiseCleaners();
  const auto& version = *versions[choices.upTo(static_cast<int>(versions.size()) - 1)];
  orvel_test::Shape shape;
  shape.version = version.version;
  shape.rate = rate;
  shape.frameMs = choices.oneIn(2) ? 30 : 32;
  shape.compress = version.compressesBands() ? choices.upTo(4) : 0;
  const int widest = rate * shape.frameMs / 2000 + 1;
  shape.begin = choices.upTo(4);
  shape.band = 1 + choices.upTo(std::min(100, widest - shape.begin - 1));
  shape.preview = 1 + choices.upTo(6);
  shape.nat = 1 + choices.upTo(6);
  shape.hidden.assign(1 + choices.upTo(2), 1 + choices.upTo(15));
  shape.gateWidth = choices.oneIn(2) ? 1 : shape.hidden.back();
  shape.seed = choices.byte();
  return orvel_test::makeModel(shape);
}

// Numbers that no training gives, in the places where they hurt.
void spoilValues(TestModel& model, Choices& choices) {
  constexpr float kValues[] = {0.0F, 1e38F, -1e38F, 1e-40F, 3.4e38F};
  Floats* targets[] = {&model.mu, &model.sd, &model.minMax, &model.bestF1};
  for (int count = choices.upTo(3); count > 0; --count) {
    Floats& values = *targets[choices.upTo(3)];
    if (!values.empty()) values[choices.upTo(999) % values.size()] = kValues[choices.upTo(4)];
  }
  for (int count = model.linear.empty() ? 0 : choices.upTo(2); count > 0; --count) {
    Floats& values = model.linear[choices.upTo(9) % model.linear.size()].data;
    if (!values.empty()) values[choices.upTo(9999) % values.size()] = kValues[choices.upTo(4)];
  }
}

void spoilFrame(TestModel& model, Choices& choices) {
  if (choices.oneIn(2)) {
    // Still in proportion: only the length itself is unusual.
    model.step += choices.upTo(20) - 10;
    model.frameLength = 2 * model.step;
    model.bins = model.step + 1;
  }
  int* const numbers[] = {&model.frameLength, &model.step, &model.begin, &model.end,
                          &model.preview,     &model.nat,  &model.bins,  &model.rate};
  if (choices.oneIn(4)) {
    int& number = *numbers[choices.upTo(7)];
    number = choices.oneIn(2) ? number + choices.upTo(6) - 3
                              : static_cast<int>((choices.byte() << 24U) | choices.byte());
  }
}

void spoilLists(TestModel& model, Choices& choices) {
  std::vector<Dense>* const matrices[] = {&model.linear, &model.nonLinear, &model.gru};
  std::vector<Floats>* const vectors[] = {&model.linearBias, &model.nonLinearBias, &model.gruBias,
                                          &model.multiplier, &model.reducer};
  if (choices.oneIn(4)) {
    auto& list = *matrices[choices.upTo(2)];
    if (!list.empty() && choices.oneIn(2)) {
      Dense& matrix = list[choices.upTo(9) % list.size()];
      matrix.rows += choices.upTo(2);
      matrix.cols += choices.upTo(2);
      matrix.data.resize(std::size_t{matrix.rows} * matrix.cols, 0.1F);
    } else {
      list.resize(choices.upTo(4));
    }
  }
  if (choices.oneIn(4)) {
    auto& list = *vectors[choices.upTo(4)];
    if (!list.empty() && choices.oneIn(2)) {
      list[choices.upTo(9) % list.size()].resize(choices.upTo(20));
    } else {
      list.resize(choices.upTo(4));
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Choices choices(data, size);
  orvel_fuzz::SessionChoice session;
  session.inRate = static_cast<std::uint8_t>(choices.upTo(8));
  session.outRate = static_cast<std::uint8_t>(choices.upTo(8));
  session.duration = static_cast<std::uint8_t>(choices.upTo(3));
  session.frames = static_cast<std::uint8_t>(choices.upTo(15));
  TestModel model = chooseModel(choices);
  spoilFrame(model, choices);
  spoilLists(model, choices);
  spoilValues(model, choices);
  const std::string compress =
      "ORVEL_COMPRESS_RATE_v0_0_5 " + std::to_string(choices.upTo(6)) + "\n";
  WeightBuilder weights = model.weights();
  orvel_fuzz::driveModel(compress + choices.restAsText(), weights.bytes(), session);
  return 0;
}
