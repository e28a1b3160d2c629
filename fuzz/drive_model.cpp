#include "fuzz/drive_model.h"

#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "fuzz/memory_file.h"
#include "fuzz/require.h"
#include "orvel/orv_sdk.h"
#include "orvel/orv_sdk_ext.h"

namespace orvel_fuzz {
namespace {

constexpr int kRates[] = {8000, 12000, 16000, 24000, 32000, 44100, 48000, 88200, 96000, 11025};
constexpr int kDurations[] = {10, 20, 30, 40, 15, 0, -10, 2000000000};
constexpr int kMostFrames = 16;

// Noise with silence, full scale and numbers that are none.
std::vector<float> roughFrame(std::size_t count, unsigned frame) {
  std::vector<float> samples(count);
  std::uint32_t state = 7 + frame;
  for (std::size_t i = 0; i < count; ++i) {
    state = state * 1664525U + 1013904223U;
    const float noise = static_cast<float>(state >> 8U) / 8388608.0F - 1.0F;
    samples[i] = frame % 4 == 2 ? 0.0F : noise * (frame % 4 == 3 ? 1e35F : 0.5F);
    if (frame % 4 == 3 && i % 7 == 0) samples[i] = std::numeric_limits<float>::quiet_NaN();
  }
  return samples;
}

std::uint32_t frameSize(int rate, int duration) {
  return static_cast<std::uint32_t>(static_cast<std::int64_t>(rate) * duration / 1000);
}

void clean(void* session, int inRate, int outRate, int duration, const SessionChoice& choice) {
  const std::uint32_t inSize = frameSize(inRate, duration);
  std::vector<float> out(frameSize(outRate, duration));
  const auto outSize = static_cast<std::uint32_t>(out.size());
  std::uint32_t latency = 0;
  require(Orv_NC_GetLatency(session, &latency) == 0, "a session has a latency");
  require(latency < static_cast<std::uint32_t>(outRate), "a latency is below a second");
  if (choice.attenuationLimit > 0) {
    require(Orv_NC_SetAttenuationLimit(session, choice.attenuationLimit) == 0, "a limit is taken");
  }
  for (unsigned frame = 0; frame < choice.frames % kMostFrames; ++frame) {
    const std::vector<float> in = roughFrame(inSize, frame);
    require(Orv_NC_CleanAmbientNoiseFloat(session, in.data(), inSize, out.data(), outSize) == 0,
            "a frame is cleaned");
    for (const float sample : out)
      require(sample >= -1.0F && sample < 1.0F, "output is finite and in range");
  }
}

void score(void* session, int rate, int duration, const SessionChoice& choice) {
  const std::uint32_t size = frameSize(rate, duration);
  for (unsigned frame = 0; frame < choice.frames % kMostFrames; ++frame) {
    const std::vector<float> in = roughFrame(size, frame);
    float value = std::numeric_limits<float>::quiet_NaN();
    require(Orv_VAD_ProcessFloat(session, in.data(), size, &value) == 0, "a frame is scored");
    require(std::isfinite(value), "a score is finite");
  }
}

void runSessions(const char* name, const SessionChoice& choice) {
  const int inRate = kRates[choice.inRate % std::size(kRates)];
  const int outRate = kRates[choice.outRate % std::size(kRates)];
  const int duration = kDurations[choice.duration % std::size(kDurations)];
  void* session = Orv_NC_CreateSession(inRate, outRate, duration, name);
  std::uint32_t latency = 0;
  // A model of the other kind gives a session whose frames are refused.
  if (Orv_NC_GetLatency(session, &latency) == 0) {
    clean(session, inRate, outRate, duration, choice);
    require(Orv_NC_CloseSession(session) == 0, "a session is closed");
    require(Orv_NC_GetLatency(session, &latency) == 2, "a closed handle is refused");
  }
  session = Orv_VAD_CreateSession(inRate, duration, name);
  if (session != nullptr && Orv_NC_GetLatency(session, &latency) != 0) {
    score(session, inRate, duration, choice);
    require(Orv_VAD_CloseSession(session) == 0, "a session is closed");
  }
}

}  // namespace

void driveModel(std::string_view tuningKeys, std::string_view weights,
                const SessionChoice& choice) {
  const MemoryFile weightFile(weights);
  std::string control = "WEIGHT " + weightFile.path() + "\n";
  control += tuningKeys;
  const MemoryFile controlFile(control);
  require(Orv_SDK_GlobalInit(nullptr) == 0, "the library starts");
  const bool loaded = Orv_SDK_SetModel(controlFile.path().c_str(), "model") == 0;
  if (loaded) runSessions("model", choice);
  // Without a name the choice goes by rate, over what was loaded.
  runSessions(nullptr, choice);
  require(Orv_SDK_GlobalDestroy() == 0, "the library ends");
}

}  // namespace orvel_fuzz
