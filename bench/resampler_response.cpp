// What the resampler of this build does to tones: for every frequency of the input the level at which
// it comes out, and the level of everything else that comes with it (aliases, images, noise). Prints JSON.
#include <cmath>
#include <complex>
#include <iostream>
#include <nlohmann/json.hpp>
#include <numbers>
#include <vector>

#include "orv-sdk/frame_resampler.h"

namespace {

using nlohmann::json;

struct Conversion {
  int from;
  int to;
};

constexpr Conversion kConversions[] = {{48000, 16000}, {16000, 48000}, {44100, 16000},
                                       {16000, 44100}, {48000, 32000}, {8000, 16000}};
constexpr double kLevel = 10000.0;
constexpr int kFrames = 60;
// Behind the start of the stream.
constexpr int kSettledFrames = 10;

double decibels(double ratio) { return 20.0 * std::log10(std::max(ratio, 1e-12)); }

std::vector<double> convertTone(const Conversion& conversion, double frequency) {
  ORVEL::ResamplerCache cache;
  const auto inSize = static_cast<std::size_t>(conversion.from / 100);
  const auto outSize = static_cast<std::size_t>(conversion.to / 100);
  ORVEL::FrameResampler resampler(cache, inSize, outSize);
  std::vector<float> in(inSize);
  std::vector<float> out;
  std::vector<double> stream;
  for (std::size_t n = 0; n < kFrames * inSize; ++n) {
    const double phase = std::fmod(frequency * static_cast<double>(n) / conversion.from, 1.0);
    in[n % inSize] = static_cast<float>(kLevel * std::sin(2.0 * std::numbers::pi * phase));
    if ((n + 1) % inSize == 0) {
      resampler.process(in, out);
      if (n / inSize >= kSettledFrames) stream.insert(stream.end(), out.begin(), out.end());
    }
  }
  return stream;
}

// Level of the tone, and of the rest, in decibels of the input's.
json measure(const Conversion& conversion, double frequency) {
  const std::vector<double> stream = convertTone(conversion, frequency);
  const bool isKept = frequency < conversion.to / 2.0;
  std::complex<double> tone = 0.0;
  const auto turn = [&](std::size_t n) {
    const double phase = std::fmod(frequency * static_cast<double>(n) / conversion.to, 1.0);
    return std::polar(1.0, 2.0 * std::numbers::pi * phase);
  };
  for (std::size_t n = 0; isKept && n < stream.size(); ++n)
    tone += stream[n] * std::conj(turn(n));
  tone *= 2.0 / static_cast<double>(stream.size());
  double rest = 0.0;
  for (std::size_t n = 0; n < stream.size(); ++n) {
    const double residue = stream[n] - (isKept ? (tone * turn(n)).real() : 0.0);
    rest += residue * residue;
  }
  rest = std::sqrt(2.0 * rest / static_cast<double>(stream.size()));
  return {frequency, isKept ? json(decibels(std::abs(tone) / kLevel)) : json(),
          decibels(rest / kLevel)};
}

}  // namespace

int main() {
  json result = json::array();
  for (const Conversion& conversion : kConversions) {
    ORVEL::ResamplerCache cache;
    const ORVEL::FrameResampler resampler(cache, static_cast<std::size_t>(conversion.from / 100),
                                          static_cast<std::size_t>(conversion.to / 100));
    json points = json::array();
    // Whole periods in the measured stretch; the odd number keeps aliases apart from the tone.
    for (int step = 1; step < 150; ++step)
      points.push_back(
          measure(conversion, std::round(conversion.from / 300.0 * step / 50.0) * 50.0 + 2.0));
    result.push_back({{"from", conversion.from},
                      {"to", conversion.to},
                      {"delay", resampler.delay()},
                      {"points", points}});
  }
  std::cout << result.dump() << '\n';
  return 0;
}
