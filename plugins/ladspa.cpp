// The LADSPA face: orvel_mono and orvel_stereo.
#include <ladspa.h>

#include <array>
#include <cstdio>
#include <exception>
#include <iterator>

#include "plugins/plugin_core.h"

namespace ORVEL::PLUGINS {
namespace {

struct Port {
  const char* name;
  LADSPA_PortDescriptor kind;
  LADSPA_PortRangeHint range;
};

constexpr LADSPA_PortDescriptor kControl = LADSPA_PORT_INPUT | LADSPA_PORT_CONTROL;
constexpr LADSPA_PortRangeHintDescriptor kBounded =
    LADSPA_HINT_BOUNDED_BELOW | LADSPA_HINT_BOUNDED_ABOVE;
constexpr LADSPA_PortRangeHint kSwitch{LADSPA_HINT_TOGGLED | LADSPA_HINT_DEFAULT_0, 0.0F, 0.0F};

// After the audio ports. LADSPA tells defaults as quarters of a range: these are those of Controls.
enum ControlPort { kLimit, kGate, kThreshold, kHold, kBypass, kLatency };
constexpr Port kControls[] = {
    {"Attenuation limit (dB)",
     kControl,
     {kBounded | LADSPA_HINT_DEFAULT_MAXIMUM, 0.0F, Controls::kNoLimitDb}},
    {"Voice gate", kControl, kSwitch},
    {"Gate threshold", kControl, {kBounded | LADSPA_HINT_DEFAULT_MIDDLE, 0.1F, 1.0F}},
    {"Gate hold (ms)", kControl, {kBounded | LADSPA_HINT_DEFAULT_LOW, 0.0F, 1200.0F}},
    {"Bypass", kControl, kSwitch},
    {"latency", LADSPA_PORT_OUTPUT | LADSPA_PORT_CONTROL, {0, 0.0F, 0.0F}},
};

// One plugin with N inputs, then N outputs, then the controls.
template <std::size_t N>
struct Plugin {
  static constexpr std::size_t kPorts = 2 * N + std::size(kControls);

  std::array<LADSPA_Data*, kPorts> ports{};
  PluginCore core;

  explicit Plugin(unsigned long rate) : core(static_cast<double>(rate), N) {}

  LADSPA_Data* control(ControlPort port) const { return ports[2 * N + port]; }
  float value(ControlPort port, float otherwise) const {
    const LADSPA_Data* place = control(port);
    return place != nullptr ? *place : otherwise;
  }
  void tellLatency() const {
    if (LADSPA_Data* place = control(kLatency); place != nullptr)
      *place = static_cast<LADSPA_Data>(core.latency());
  }
  void run(unsigned long count) {
    Controls controls;
    controls.attenuationLimitDb = value(kLimit, controls.attenuationLimitDb);
    controls.bypass = value(kBypass, 0.0F) > 0.0F;
    controls.gate = {value(kGate, 0.0F) > 0.0F, value(kThreshold, controls.gate.threshold),
                     value(kHold, controls.gate.holdMs)};
    core.process(ports.data(), ports.data() + N, count, controls);
    tellLatency();
  }

  static LADSPA_Handle instantiate(const LADSPA_Descriptor* /*descriptor*/, unsigned long rate) {
    try {
      return new Plugin(rate);
    } catch (const std::exception& error) {
      std::fprintf(stderr, "orvel: %s\n", error.what());
      return nullptr;
    }
  }
  static Plugin& of(LADSPA_Handle handle) { return *static_cast<Plugin*>(handle); }
  static void connect(LADSPA_Handle handle, unsigned long port, LADSPA_Data* place) {
    of(handle).ports[port] = place;
    if (port == 2 * N + kLatency) of(handle).tellLatency();
  }
  static void activate(LADSPA_Handle handle) {
    try {
      of(handle).core.reset();
    } catch (const std::exception& error) {
      std::fprintf(stderr, "orvel: %s\n", error.what());
    }
  }
  static void run(LADSPA_Handle handle, unsigned long count) { of(handle).run(count); }
  static void cleanup(LADSPA_Handle handle) { delete &of(handle); }

  // Filled once, when the library is loaded.
  struct Description {
    std::array<LADSPA_PortDescriptor, kPorts> kinds;
    std::array<const char*, kPorts> names;
    std::array<LADSPA_PortRangeHint, kPorts> ranges;
    LADSPA_Descriptor descriptor;
  };
  static Description describe(unsigned long id, const char* label, const char* name,
                              const char* const (&audio)[2 * N]) {
    Description all{};
    for (std::size_t i = 0; i < kPorts; ++i) {
      const auto audioKind = (i < N ? LADSPA_PORT_INPUT : LADSPA_PORT_OUTPUT) | LADSPA_PORT_AUDIO;
      const Port port = i < 2 * N ? Port{audio[i], audioKind, {}} : kControls[i - 2 * N];
      all.kinds[i] = port.kind;
      all.names[i] = port.name;
      all.ranges[i] = port.range;
    }
    all.descriptor = {id,      label,    LADSPA_PROPERTY_HARD_RT_CAPABLE,
                      name,    "ORVEL",  "Apache-2.0",
                      kPorts,  nullptr,  nullptr,
                      nullptr, nullptr,  instantiate,
                      connect, activate, run,
                      nullptr, nullptr,  nullptr,
                      cleanup};
    return all;
  }
};

// Chosen by us; nobody hands out LADSPA identifiers any more.
constexpr unsigned long kMonoId = 5241;
constexpr unsigned long kStereoId = 5242;
Plugin<1>::Description mono =
    Plugin<1>::describe(kMonoId, "orvel_mono", "ORVEL noise removal", {"Input", "Output"});
Plugin<2>::Description stereo =
    Plugin<2>::describe(kStereoId, "orvel_stereo", "ORVEL noise removal, stereo",
                        {"Input left", "Input right", "Output left", "Output right"});

template <class Description>
const LADSPA_Descriptor* descriptorOf(Description& all) {
  all.descriptor.PortDescriptors = all.kinds.data();
  all.descriptor.PortNames = all.names.data();
  all.descriptor.PortRangeHints = all.ranges.data();
  return &all.descriptor;
}

}  // namespace
}  // namespace ORVEL::PLUGINS

extern "C" __attribute__((visibility("default"))) const LADSPA_Descriptor* ladspa_descriptor(
    unsigned long index) {
  using namespace ORVEL::PLUGINS;
  return index == 0 ? descriptorOf(mono) : index == 1 ? descriptorOf(stereo) : nullptr;
}
