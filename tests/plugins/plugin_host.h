// A host of the built plugins: opens either file and runs what it holds, in blocks of any length.
#pragma once

#include <dlfcn.h>
#include <ladspa.h>
#include <lv2/core/lv2.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

namespace orvel_test {

using Channels = std::vector<std::vector<float>>;

struct PluginOptions {
  bool lv2 = false;
  unsigned long rate = 48000;
  std::size_t channels = 1;
};

class Plugin {
 public:
  // After the audio ports; in LADSPA the fifth is "bypass", in LV2 "enabled".
  enum Control { kLimit, kGate, kThreshold, kHold, kSwitch, kLatency, kControls };

  explicit Plugin(const PluginOptions& options) : options_(options) {
    controls_[kSwitch] = options.lv2 ? 1.0F : 0.0F;
    if (options.lv2) {
      lv2_ = find<const LV2_Descriptor*(std::uint32_t)>(
          ORVEL_LV2_PLUGIN, "lv2_descriptor")(static_cast<std::uint32_t>(options.channels - 1));
      static const LV2_Feature* const kNone[] = {nullptr};
      handle_ = lv2_->instantiate(lv2_, static_cast<double>(options.rate), "", kNone);
    } else {
      ladspa_ = find<const LADSPA_Descriptor*(unsigned long)>(
          ORVEL_LADSPA_PLUGIN, "ladspa_descriptor")(options.channels - 1);
      handle_ = ladspa_->instantiate(ladspa_, options.rate);
    }
    if (handle_ == nullptr) return;
    for (std::size_t i = 0; i < kControls; ++i)
      connect(2 * options.channels + i, &controls_[i]);
    activate();
  }
  ~Plugin() {
    if (handle_ != nullptr) options_.lv2 ? lv2_->cleanup(handle_) : ladspa_->cleanup(handle_);
  }
  Plugin(const Plugin&) = delete;
  Plugin& operator=(const Plugin&) = delete;

  bool works() const { return handle_ != nullptr; }
  void activate() { options_.lv2 ? lv2_->activate(handle_) : ladspa_->activate(handle_); }
  void set(Control control, float value) { controls_[control] = value; }
  void bypass(bool bypassed) { set(kSwitch, bypassed != options_.lv2 ? 1.0F : 0.0F); }
  std::size_t latency() {
    run({}, {}, 0);
    return static_cast<std::size_t>(controls_[kLatency]);
  }

  void run(const std::vector<float*>& in, const std::vector<float*>& out, std::size_t count) {
    for (std::size_t c = 0; c < in.size(); ++c) {
      connect(c, in[c]);
      connect(options_.channels + c, out[c]);
    }
    options_.lv2 ? lv2_->run(handle_, static_cast<std::uint32_t>(count))
                 : ladspa_->run(handle_, count);
  }
  // A whole stream in blocks of the given lengths in turn; `before` is called with each block's start.
  template <class Before>
  Channels process(const Channels& input, const std::vector<std::size_t>& blocks, Before before) {
    Channels output = input;
    std::vector<float*> in(input.size()), out(input.size());
    for (std::size_t at = 0, block = 0; at < input[0].size(); ++block) {
      const std::size_t count = std::min(blocks[block % blocks.size()], input[0].size() - at);
      for (std::size_t c = 0; c < input.size(); ++c)
        in[c] = out[c] = output[c].data() + at;
      before(at);
      run(in, out, count);
      at += count;
    }
    return output;
  }
  Channels process(const Channels& input, const std::vector<std::size_t>& blocks = {512}) {
    return process(input, blocks, [](std::size_t) {});
  }

 private:
  template <class Function>
  static Function* find(const char* file, const char* name) {
    void* library = dlopen(file, RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) throw std::runtime_error(dlerror());
    return reinterpret_cast<Function*>(dlsym(library, name));
  }
  void connect(std::size_t port, float* place) {
    options_.lv2 ? lv2_->connect_port(handle_, static_cast<std::uint32_t>(port), place)
                 : ladspa_->connect_port(handle_, port, place);
  }

  PluginOptions options_;
  const LV2_Descriptor* lv2_ = nullptr;
  const LADSPA_Descriptor* ladspa_ = nullptr;
  void* handle_ = nullptr;
  float controls_[kControls] = {100.0F, 0.0F, 0.55F, 300.0F, 0.0F, -1.0F};
};

}  // namespace orvel_test
