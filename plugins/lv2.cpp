// The LV2 face: urn:orvel:mono and urn:orvel:stereo. Its ports are described in orvel.ttl.
#include <lv2/core/lv2.h>
#include <lv2/core/lv2_util.h>
#include <lv2/log/logger.h>

#include <array>
#include <cstring>
#include <exception>

#include "plugins/plugin_core.h"

namespace ORVEL::PLUGINS {
namespace {

// After the audio ports.
enum ControlPort { kLimit, kGate, kThreshold, kHold, kEnabled, kLatency, kControlPorts };

// Says what failed to the host, or on standard error where it takes no messages.
void report(const LV2_Feature* const* features, const std::exception& error) {
  LV2_URID_Map* map = nullptr;
  LV2_Log_Logger logger{};
  lv2_features_query(features, LV2_LOG__log, &logger.log, false, LV2_URID__map, &map, false,
                     nullptr);
  lv2_log_logger_set_map(&logger, map);
  lv2_log_error(&logger, "orvel: %s\n", error.what());
}

template <std::size_t N>
struct Plugin {
  std::array<float*, 2 * N + kControlPorts> ports{};
  PluginCore core;

  explicit Plugin(double rate) : core(rate, N) {}

  float value(ControlPort port, float otherwise) const {
    const float* place = ports[2 * N + port];
    return place != nullptr ? *place : otherwise;
  }
  void run(std::uint32_t count) {
    Controls controls;
    controls.attenuationLimitDb = value(kLimit, controls.attenuationLimitDb);
    controls.bypass = value(kEnabled, 1.0F) <= 0.0F;
    controls.gate = {value(kGate, 0.0F) > 0.0F, value(kThreshold, controls.gate.threshold),
                     value(kHold, controls.gate.holdMs)};
    core.process(ports.data(), ports.data() + N, count, controls);
    if (float* latency = ports[2 * N + kLatency]; latency != nullptr)
      *latency = static_cast<float>(core.latency());
  }

  static LV2_Handle instantiate(const LV2_Descriptor* /*descriptor*/, double rate,
                                const char* /*bundle*/, const LV2_Feature* const* features) {
    try {
      return new Plugin(rate);
    } catch (const std::exception& error) {
      report(features, error);
      return nullptr;
    }
  }
  static Plugin& of(LV2_Handle handle) { return *static_cast<Plugin*>(handle); }
  static void connect(LV2_Handle handle, std::uint32_t port, void* place) {
    if (port < of(handle).ports.size()) of(handle).ports[port] = static_cast<float*>(place);
  }
  static void activate(LV2_Handle handle) {
    try {
      of(handle).core.reset();
    } catch (const std::exception& error) {
      report(nullptr, error);
    }
  }
  static void run(LV2_Handle handle, std::uint32_t count) { of(handle).run(count); }
  static void cleanup(LV2_Handle handle) { delete &of(handle); }

  static constexpr LV2_Descriptor descriptor(const char* uri) {
    return {uri, instantiate, connect, activate, run, nullptr, cleanup, nullptr};
  }
};

constexpr LV2_Descriptor kMono = Plugin<1>::descriptor("urn:orvel:mono");
constexpr LV2_Descriptor kStereo = Plugin<2>::descriptor("urn:orvel:stereo");

}  // namespace
}  // namespace ORVEL::PLUGINS

extern "C" __attribute__((visibility("default"))) const LV2_Descriptor* lv2_descriptor(
    std::uint32_t index) {
  using namespace ORVEL::PLUGINS;
  return index == 0 ? &kMono : index == 1 ? &kStereo : nullptr;
}
