#include "bench/support.h"

#include <sys/resource.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <iostream>

#include "tests/support/signals.h"
#include "tests/support/versions.h"

namespace orvel_bench {
namespace {

namespace fs = std::filesystem;

struct Size {
  const char* name;
  orvel_test::Shape shape;
};

// Around half a million, one and two million weights.
std::vector<Size> sizes() {
  const auto shape = [](const char* version, int width) {
    orvel_test::Shape result =
        orvel_test::shapeOf(*ORVEL::NOISE_CANCELLER::findCleanerVersion(version));
    result.begin = 0;
    result.band = 256;
    result.preview = 6;
    result.hidden = {width, width};
    result.gateWidth = width;
    return result;
  };
  return {{"random-small-v5", shape("0.0.5", 200)},
          {"random-medium-v5", shape("0.0.5", 310)},
          {"random-large-v3", shape("0.0.3", 450)}};
}

std::vector<BenchModel> loadAll(orvel::Library& library) {
  std::vector<fs::path> shipped;
  for (const auto& entry : fs::directory_iterator(ORVEL_MODELS_DIR)) {
    if (entry.path().extension() == ".ctl") shipped.push_back(entry.path());
  }
  std::sort(shipped.begin(), shipped.end());
  std::vector<BenchModel> models;
  for (const fs::path& control : shipped)
    models.push_back({library.loadModel(control), control, std::nullopt});
  for (const Size& size : sizes()) {
    const std::string weights = orvel_test::makeModel(size.shape).weights().bytes();
    models.push_back({library.loadModelFromMemory("", std::as_bytes(std::span(weights)), size.name),
                      {},
                      size.shape});
  }
  return models;
}

std::variant<orvel::Cleaner, orvel::Detector> open(const BenchModel& model, int inRate,
                                                   int outRate) {
  if (model.voice())
    return orvel::Detector(benchLibrary(), {.rate = inRate, .model = model.info.name});
  return orvel::Cleaner(benchLibrary(),
                        {.inputRate = inRate, .outputRate = outRate, .model = model.info.name});
}

[[noreturn]] void refuse(const char* argument, const char* usage) {
  std::cerr << "'" << argument << "' is not expected here\nusage: " << usage << '\n';
  std::exit(2);
}

}  // namespace

orvel::Library& benchLibrary() {
  static orvel::Library library;
  return library;
}

const std::vector<BenchModel>& allModels() {
  static const std::vector<BenchModel> models = loadAll(benchLibrary());
  return models;
}

BenchSession::BenchSession(const BenchModel& model, int inRate, int outRate)
    : session_(open(model, inRate, outRate)) {}

std::size_t BenchSession::inputSize() const {
  const auto* cleaner = std::get_if<orvel::Cleaner>(&session_);
  return cleaner != nullptr ? cleaner->inputSize()
                            : std::get<orvel::Detector>(session_).frameSize();
}

std::size_t BenchSession::outputSize() const {
  const auto* cleaner = std::get_if<orvel::Cleaner>(&session_);
  return cleaner != nullptr ? cleaner->outputSize() : 1;
}

void BenchSession::process(std::span<const float> in, std::span<float> out) {
  if (auto* cleaner = std::get_if<orvel::Cleaner>(&session_)) {
    cleaner->process(in.first(cleaner->inputSize()), out.first(cleaner->outputSize()));
  } else {
    auto& detector = std::get<orvel::Detector>(session_);
    out[0] = detector.process(in.first(detector.frameSize()));
  }
}

std::vector<float> benchSignal(int rate, double seconds) {
  return orvel_test::toFloat(orvel_test::speechLike(rate, seconds));
}

double threadNanoseconds() {
  timespec now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) * 1e9 + static_cast<double>(now.tv_nsec);
}

double residentBytes() {
  std::FILE* file = std::fopen("/proc/self/statm", "r");
  long total = 0;
  long resident = 0;
  if (file != nullptr) {
    if (std::fscanf(file, "%ld %ld", &total, &resident) != 2) resident = 0;
    std::fclose(file);
  }
  return static_cast<double>(resident) * static_cast<double>(sysconf(_SC_PAGESIZE));
}

std::vector<double> argumentsOr(std::vector<double> defaults, int argc, char** argv,
                                const char* usage) {
  for (int i = 1; i < argc; ++i) {
    if (static_cast<std::size_t>(i) > defaults.size()) refuse(argv[i], usage);
    char* end = nullptr;
    const double value = std::strtod(argv[i], &end);
    if (end == argv[i] || *end != '\0' || !(value > 0.0) || value > 1e9) refuse(argv[i], usage);
    defaults[static_cast<std::size_t>(i - 1)] = value;
  }
  return defaults;
}

}  // namespace orvel_bench
