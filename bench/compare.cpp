// Two builds of the library beside each other: how far their outputs are apart and how their times compare,
// over all models, rates and key sets. Sessions of both run in turn, so that what disturbs one disturbs the
// other. orvel_compare LIBRARY OTHER_LIBRARY [ROUNDS]; prints JSON.
#include <dlfcn.h>
#include <time.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "noise_canceller/tuning_key_table.h"
#include "orvel/orv_sdk.h"
#include "orvel/orv_sdk_ext.h"
#include "tests/support/signals.h"
#include "tests/support/versions.h"

namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using Floats = std::vector<float>;

// Another build's functions, loaded beside those of the first.
class Build {
 public:
  explicit Build(const std::string& path) : handle_(dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL)) {
    if (handle_ == nullptr) throw std::runtime_error(dlerror());
    context_ = call<decltype(Orv_Context_Create)>("Orv_Context_Create")("");
  }

  template <class Function>
  Function* call(const char* name) const {
    return reinterpret_cast<Function*>(dlsym(handle_, name));
  }

  void load(const std::string& name, const std::string& control, const std::string& weights) const {
    const int status =
        call<decltype(Orv_Context_SetModelFromMemory)>("Orv_Context_SetModelFromMemory")(
            context_, control.data(), control.size(), weights.data(), weights.size(), name.c_str());
    if (status != 0) throw std::runtime_error("cannot load " + name);
  }

  OrvModelInfo info(const std::string& name) const {
    OrvModelInfo info{};
    info.size = sizeof info;
    call<decltype(Orv_Context_GetModelInfo)>("Orv_Context_GetModelInfo")(context_, name.c_str(),
                                                                         &info);
    return info;
  }

  void* context() const { return context_; }

 private:
  void* handle_;
  void* context_;
};

class Session {
 public:
  Session(const Build& build, const std::string& model, bool detects, int rate)
      : size_(static_cast<std::uint32_t>(rate / 100)),
        clean_(
            build.call<decltype(Orv_NC_CleanAmbientNoiseFloat)>("Orv_NC_CleanAmbientNoiseFloat")),
        score_(build.call<decltype(Orv_VAD_ProcessFloat)>("Orv_VAD_ProcessFloat")),
        close_(build.call<decltype(Orv_NC_CloseSession)>(detects ? "Orv_VAD_CloseSession"
                                                                 : "Orv_NC_CloseSession")),
        detects_(detects) {
    session_ = detects
                   ? build.call<decltype(Orv_Context_CreateDetector)>("Orv_Context_CreateDetector")(
                         build.context(), rate, 10, model.c_str())
                   : build.call<decltype(Orv_Context_CreateCleaner)>("Orv_Context_CreateCleaner")(
                         build.context(), rate, rate, 10, model.c_str());
    if (session_ == nullptr) throw std::runtime_error("no session of " + model);
  }
  ~Session() { close_(session_); }
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  Floats process(const Floats& in) {
    Floats out(detects_ ? in.size() / size_ : in.size());
    for (std::size_t i = 0; i < in.size() / size_; ++i) {
      const float* frame = in.data() + i * size_;
      const int status = detects_ ? score_(session_, frame, size_, &out[i])
                                  : clean_(session_, frame, size_, &out[i * size_], size_);
      if (status != 0) throw std::runtime_error("a frame was refused");
    }
    return out;
  }

 private:
  std::uint32_t size_;
  decltype(Orv_NC_CleanAmbientNoiseFloat)* clean_;
  decltype(Orv_VAD_ProcessFloat)* score_;
  decltype(Orv_NC_CloseSession)* close_;
  bool detects_;
  void* session_;
};

std::string read(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  std::stringstream content;
  content << file.rdbuf();
  return content.str();
}

double seconds() {
  timespec now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

// Speech that fades, clips and falls silent.
Floats signal(int rate) {
  Floats samples = orvel_test::toFloat(orvel_test::speechLike(rate, 4.0));
  const std::size_t quarter = samples.size() / 4;
  for (std::size_t i = 0; i < quarter; ++i) {
    samples[quarter + i] *= 1.0F - static_cast<float>(i) / static_cast<float>(quarter);
    samples[2 * quarter + i] *= i < quarter / 2 ? 0.0F : 1.0F;
    samples[3 * quarter + i] = std::clamp(6.0F * samples[3 * quarter + i], -1.0F, 1.0F);
  }
  return samples;
}

json compare(const Build& a, const Build& b, const std::string& model, int rate, int rounds) {
  const bool detects = a.info(model).kind == ORV_MODEL_VOICE_ACTIVITY;
  const Floats in = signal(rate);
  double floats = 0.0;
  double steps = 0.0;
  double least[2] = {INFINITY, INFINITY};
  Session first(a, model, detects, rate);
  Session second(b, model, detects, rate);
  const Floats expected = first.process(in);
  const Floats got = second.process(in);
  for (std::size_t i = 0; i < got.size(); ++i) {
    floats = std::max(floats, std::abs(static_cast<double>(got[i]) - expected[i]));
    steps =
        std::max(steps, std::abs(std::trunc(got[i] * 32768.0) - std::trunc(expected[i] * 32768.0)));
  }
  // Short pieces in turn: the least time of each is its own, whatever else the machine does.
  const Floats piece(in.begin(), in.begin() + rate / 5);
  for (int round = 0; round < rounds; ++round) {
    for (Session* session : {&first, &second}) {
      const double start = seconds();
      session->process(piece);
      double& best = least[session == &first ? 0 : 1];
      best = std::min(best, seconds() - start);
    }
  }
  json row{{"model", model}, {"rate", rate}, {"floats", floats}};
  if (!detects) row["steps"] = steps;
  if (rounds > 0) row["ns_per_second"] = {5e9 * least[0], 5e9 * least[1]};
  return row;
}

}  // namespace

int main(int argc, char** argv) try {
  if (argc < 3) throw std::runtime_error("usage: orvel_compare LIBRARY OTHER_LIBRARY [ROUNDS]");
  const int rounds = argc > 3 ? std::stoi(argv[3]) : 0;
  const Build a(argv[1]);
  const Build b(argv[2]);
  json rows = json::array();
  std::set<fs::path> controls;
  for (const auto& entry : fs::directory_iterator(ORVEL_MODELS_DIR))
    if (entry.path().extension() == ".ctl") controls.insert(entry.path());
  for (const fs::path& control : controls) {
    const std::string name = control.stem();
    fs::path weights = control;
    const std::string bytes = read(weights.replace_extension(".bin"));
    a.load(name, read(control), bytes);
    const auto* version = ORVEL::NOISE_CANCELLER::findCleanerVersion(a.info(name).version);
    if (version == nullptr) throw std::runtime_error("unknown version of " + name);
    b.load(name, read(control), bytes);
    std::vector<std::string> sets{name};
    for (const bool on : {true, false}) {
      const orvel_test::Keys stages = orvel_test::allStages(*version, on);
      std::string keys;
      for (const auto& [key, value] : stages)
        keys.append(key + " " + value + "\n");
      // The model's own keys stay where no stage is concerned.
      std::istringstream lines(read(control));
      for (std::string line; std::getline(lines, line);)
        if (!stages.contains(line.substr(0, line.find(' ')))) keys.append(line + "\n");
      sets.push_back(name + (on ? ", every stage" : ", no stage"));
      a.load(sets.back(), keys, bytes);
      b.load(sets.back(), keys, bytes);
    }
    const int own = static_cast<int>(a.info(name).sampleRate);
    for (const std::string& set : sets) {
      for (const int rate : std::set<int>{own, 8000, 16000, 44100, 48000})
        rows.push_back(compare(a, b, set, rate, set == name ? rounds : 0));
    }
  }
  std::cout << rows.dump() << '\n';
  return 0;
} catch (const std::exception& error) {
  std::cerr << "orvel_compare: " << error.what() << '\n';
  return 1;
}
