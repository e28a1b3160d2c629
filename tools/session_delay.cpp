#include "tools/session_delay.h"

#include <cmath>
#include <string>
#include <vector>

#include "orvel/orv_sdk.h"
#include "orvel/orv_sdk_ext.h"
#include "tools/tool_error.h"

namespace ORVEL::TOOLS {
namespace {

void check(int status, const char* call) {
  if (status != 0) {
    throw ToolError(ExitCode::internal,
                    std::string(call) + " failed with " + std::to_string(status));
  }
}

}  // namespace

SessionDelay measureDelay(Session scratch) {
  SessionDelay delay;
  check(Orv_NC_GetLatency(scratch.handle(), &delay.samples), "Orv_NC_GetLatency");
  check(Orv_NC_SetAttenuationLimit(scratch.handle(), 0.0F), "Orv_NC_SetAttenuationLimit");

  // A Gaussian pulse whose spectrum lies far below every model's band limit.
  const double sigma = scratch.sampleRate() / 4000.0;
  const double centre = std::ceil(8.0 * sigma);
  const std::size_t size = scratch.frameSize();
  const auto frames = static_cast<std::size_t>(2.0 * centre + delay.samples) / size + 2;
  const auto count = static_cast<std::uint32_t>(size);
  std::vector<float> input(size);
  std::vector<float> output(size);
  double energy = 0.0;
  double moment = 0.0;
  for (std::size_t frame = 0; frame < frames; ++frame) {
    for (std::size_t i = 0; i < size; ++i) {
      const double x = (static_cast<double>(frame * size + i) - centre) / sigma;
      input[i] = static_cast<float>(0.5 * std::exp(-0.5 * x * x));
    }
    check(
        Orv_NC_CleanAmbientNoiseFloat(scratch.handle(), input.data(), count, output.data(), count),
        "Orv_NC_CleanAmbientNoiseFloat");
    for (std::size_t i = 0; i < size; ++i) {
      const double power = static_cast<double>(output[i]) * static_cast<double>(output[i]);
      energy += power;
      moment += power * static_cast<double>(frame * size + i);
    }
  }
  const double fraction = moment / energy - centre - delay.samples;
  // A cleaner that does not let the pulse through in one piece cannot be measured this way.
  constexpr double kPlausible = 0.75;
  if (energy > 0.0 && std::abs(fraction) <= kPlausible) delay.fraction = fraction;
  return delay;
}

}  // namespace ORVEL::TOOLS
