// Makes a noise-cleaning model without training: a spectral gate, as a network of one sigmoid layer.
//
// A bin's mask is sigmoid(slope * (s - n) - margin): s is the log magnitude around the bin, over two
// frames and its neighbours, n the noise average that the cleaner keeps of what it removed. The
// slope stays below 1 because the gate feeds that average itself: what an open gate removes has the
// log magnitude s - slope * (s - n) + margin + ln 2, which lies above n, so the average climbs to any
// steady sound; with a slope above 1 it lies below, and a gate that starts open stays open.

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <exception>
#include <fstream>
#include <iostream>
#include <string>
#include <vector>

#include "tools/weight_writer.h"

namespace {

using namespace ORVEL::TOOLS;

constexpr std::int32_t kSampleRate = 16000;
constexpr std::int32_t kFrameLength = 512;
constexpr std::int32_t kBins = kFrameLength / 2 + 1;
constexpr std::int32_t kPreviewFrames = 2;
constexpr std::int32_t kAveragedFrames = 60;
constexpr float kSlope = 0.8F;
constexpr float kMargin = 0.15F;
// Weights of the two frames, oldest first, and of a bin's neighbours.
constexpr float kFrameWeights[kPreviewFrames] = {0.3F, 0.7F};
constexpr float kNeighbour = 0.2F;

ORVEL::CONTAINERS::Matrix gateMatrix() {
  ORVEL::CONTAINERS::Matrix matrix = zeroMatrix((kPreviewFrames + 1) * kBins, kBins);
  for (std::int32_t bin = 0; bin < kBins; ++bin) {
    for (std::int32_t offset = -1; offset <= 1; ++offset) {
      const std::int32_t from = std::clamp(bin + offset, 0, kBins - 1);
      const float weight = offset == 0 ? 1.0F - 2.0F * kNeighbour : kNeighbour;
      for (std::int32_t frame = 0; frame < kPreviewFrames; ++frame) {
        at(matrix, frame * kBins + from, bin) += kSlope * weight * kFrameWeights[frame];
      }
    }
    at(matrix, kPreviewFrames * kBins + bin, bin) = -kSlope;
  }
  return matrix;
}

WeightRecords gate() {
  const std::vector<float> bias(kBins, -kMargin);
  const std::vector<float> none;
  const std::size_t inputs = (kPreviewFrames + 1) * kBins;
  using Matrices = std::vector<ORVEL::CONTAINERS::Matrix>;
  using Vectors = std::vector<std::vector<float>>;
  return {{"Version", std::string("0.0.1")},
          {"SampleRate", kSampleRate},
          {"FrameLength", kFrameLength},
          {"Step", kFrameLength / 2},
          {"FiltrBegin", 0},
          {"FiltrEnd", kBins},
          {"PreviewFrames", kPreviewFrames},
          {"NATFrameCount", kAveragedFrames},
          {"CoefficientNumber", kBins},
          {"MU", std::vector<float>(inputs, 0.0F)},
          {"SD", std::vector<float>(inputs, 1.0F)},
          // Only counted: the last layer has no linear branch.
          {"WeightLinear", Matrices{zeroMatrix(1, 1)}},
          {"WeightNonLinear", Matrices{gateMatrix()}},
          {"BaesLinear", Vectors{none}},
          {"BaesNonLinear", Vectors{bias}},
          {"HeadenMultiplier", Vectors{none}},
          {"HeadenReducer", Vectors{none}}};
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: make_gate_model DIRECTORY\n";
    return 2;
  }
  try {
    const std::string base = std::string(argv[1]) + "/orvel-gate";
    writeWeights(base + ".bin", gate());
    std::ofstream control(base + ".ctl");
    control << "# Spectral gate, constructed without training.\n"
               "WEIGHT orvel-gate.bin\n"
               "ORVEL_SMOOT_COEF_v0_0_1 0.6\n";
    control.close();
    if (!control) throw std::runtime_error(base + ".ctl: cannot be written");
  } catch (const std::exception& error) {
    std::cerr << "make_gate_model: " << error.what() << '\n';
    return 1;
  }
  return 0;
}
