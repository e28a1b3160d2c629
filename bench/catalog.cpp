#include "bench/catalog.h"

#include <algorithm>
#include <filesystem>
#include <iostream>
#include <sstream>
#include <stdexcept>

#include "orvel/orv_sdk.h"
#include "orvel/orv_sdk_ext.h"
#include "tests/support/signals.h"
#include "tests/support/temp_dir.h"
#include "tests/support/test_model.h"
#include "utils/native_path.h"
#include "weights/control_file.h"

namespace orvel_bench {
namespace {

namespace fs = std::filesystem;
using ORVEL::WEIGHTS::Weight;

std::string weightPath(const fs::path& control) {
  const auto entries = ORVEL::WEIGHTS::readControlFile(control);
  if (entries.has_value()) {
    for (const auto& [key, value] : *entries) {
      if (key == "WEIGHT") return control.parent_path() / ORVEL::UTILS::nativePath(value);
    }
  }
  throw std::runtime_error(control.string() + " names no weights");
}

// The loader echoes every entry on standard output, where the results go.
class Silenced {
 public:
  Silenced() : before_(std::cout.rdbuf(sink_.rdbuf())) {}
  ~Silenced() { std::cout.rdbuf(before_); }
  Silenced(const Silenced&) = delete;
  Silenced& operator=(const Silenced&) = delete;

 private:
  std::ostringstream sink_;
  std::streambuf* before_;
};

BenchModel load(const fs::path& control, bool shipped) {
  auto weight = std::make_shared<Weight>();
  if (!weight->load(weightPath(control).c_str())) {
    throw std::runtime_error("cannot load " + weightPath(control));
  }
  const std::string name = control.stem();
  // The directory was given as "", so that paths are taken as they are.
  const std::string relative = fs::relative(control);
  if (Orv_SDK_SetModel(relative.c_str(), name.c_str()) != 0) {
    throw std::runtime_error("cannot load " + control.string());
  }
  return {name, shipped,
          ORVEL::WEIGHTS::isVoiceActivityVersion(ORVEL::WEIGHTS::getWeightVersion(*weight)),
          ORVEL::WEIGHTS::getWeightInfo(*weight).sampleRate, weight};
}

struct Size {
  const char* name;
  orvel_test::Shape shape;
};

// Around half a million, one and two million weights.
std::vector<Size> sizes() {
  const auto shape = [](const char* version, int rate, int band, int preview, int width) {
    orvel_test::Shape result;
    result.version = version;
    result.rate = rate;
    result.begin = 0;
    result.band = band;
    result.preview = preview;
    result.hidden = {width, width};
    result.gateWidth = width;
    result.compress = std::string(version) >= "0.0.4" ? 2 : 0;
    return result;
  };
  return {{"random-small-v5", shape("0.0.5", 16000, 256, 6, 200)},
          {"random-medium-v5", shape("0.0.5", 16000, 256, 6, 310)},
          {"random-large-v3", shape("0.0.3", 16000, 256, 6, 450)}};
}

void writeSizes(const orvel_test::TempDir& folder) {
  for (const Size& size : sizes()) {
    const std::string name = size.name;
    folder.write(name + ".bin", orvel_test::makeModel(size.shape).weights().bytes());
    folder.write(name + ".ctl", "WEIGHT " + name + ".bin\nORVEL_COMPRESS_RATE_v0_0_5 2\n");
  }
}

std::vector<fs::path> controlFiles(const fs::path& folder) {
  std::vector<fs::path> files;
  std::error_code none;
  for (const auto& entry : fs::directory_iterator(folder, none)) {
    if (entry.path().extension() == ".ctl") files.push_back(entry.path());
  }
  std::sort(files.begin(), files.end());
  return files;
}

std::vector<BenchModel> loadAll() {
  const Silenced silenced;
  static const orvel_test::TempDir generated;
  writeSizes(generated);
  std::vector<BenchModel> models;
  const std::pair<fs::path, bool> folders[] = {{ORVEL_MODELS_DIR, true}, {generated.path(), false}};
  // Weight files are found from the directory of the library, so each folder becomes the current one.
  Orv_SDK_GlobalInit(nullptr);
  for (const auto& [folder, shipped] : folders) {
    fs::current_path(folder);
    for (const fs::path& control : controlFiles(folder))
      models.push_back(load(control, shipped));
  }
  return models;
}

}  // namespace

const std::vector<BenchModel>& allModels() {
  static const std::vector<BenchModel> models = loadAll();
  return models;
}

void* openSession(const BenchModel& model, int inRate, int outRate) {
  return model.voice ? Orv_VAD_CreateSession(inRate, 10, model.name.c_str())
                     : Orv_NC_CreateSession(inRate, outRate, 10, model.name.c_str());
}

void closeSession(const BenchModel& model, void* session) {
  if (model.voice) {
    Orv_VAD_CloseSession(session);
  } else {
    Orv_NC_CloseSession(session);
  }
}

void processFrame(const BenchModel& model, void* session, const float* in, int inRate, float* out,
                  int outRate) {
  const auto inCount = static_cast<std::uint32_t>(inRate / 100);
  const auto outCount = static_cast<std::uint32_t>(outRate / 100);
  const int status = model.voice
                         ? Orv_VAD_ProcessFloat(session, in, inCount, out)
                         : Orv_NC_CleanAmbientNoiseFloat(session, in, inCount, out, outCount);
  if (status != 0) throw std::runtime_error(model.name + " refuses a frame");
}

double hopsPerSecond(const BenchModel& model) {
  if (model.voice) return 100.0;
  return static_cast<double>(model.rate) / model.weight->values().getReference<int>("Step");
}

std::vector<float> benchSignal(int rate, double seconds) {
  return orvel_test::toFloat(orvel_test::speechLike(rate, seconds));
}

}  // namespace orvel_bench
