#include "plugins/models.h"

#include <dlfcn.h>

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <system_error>
#include <vector>

namespace ORVEL::PLUGINS {
namespace {

namespace fs = std::filesystem;

constexpr const char* kVariable = "ORVEL_MODEL_DIR";
constexpr const char* kDetector = "orvel-vad";
struct Shipped {
  const char* name;
  int rate;
};
constexpr Shipped kCleaners[] = {{"orvel-32k", 32000}, {"orvel-16k", 16000}, {"orvel-8k", 8000}};
// A bundle in an installation lies three folders below its prefix, one in a build five below the source tree.
constexpr int kLevels = 6;

fs::path controlFile(const fs::path& folder, const char* model) {
  return folder / (std::string(model) + ".ctl");
}

bool isThere(const fs::path& path) {
  std::error_code ignored;
  return fs::exists(fs::symlink_status(path, ignored));
}

bool holdsModels(const fs::path& folder) {
  return std::any_of(std::begin(kCleaners), std::end(kCleaners), [&](const Shipped& model) {
    return isThere(controlFile(folder, model.name));
  });
}

// Where this code was loaded from, with links resolved: a link in a plugin folder leads to its bundle.
fs::path ownFolder() {
  Dl_info info{};
  std::error_code error;
  if (dladdr(reinterpret_cast<const void*>(&findModelFolder), &info) == 0) return {};
  const fs::path file = fs::canonical(info.dli_fname, error);
  return error ? fs::path() : file.parent_path();
}

}  // namespace

fs::path findModelFolder() {
  if (const char* given = std::getenv(kVariable); given != nullptr && *given != '\0') {
    if (holdsModels(given)) return given;
    throw orvel::Error(1, std::string(kVariable) + ": no models in '" + given + "'");
  }
  std::vector<fs::path> places;
  fs::path folder = ownFolder();
  for (int level = 0; level < kLevels && folder.has_relative_path(); ++level) {
    places.push_back(folder / "models");
    places.push_back(folder / "share" / "orvel" / "models");
    folder = folder.parent_path();
  }
  places.insert(places.end(), {"/usr/local/share/orvel/models", "/usr/share/orvel/models"});
  std::string tried;
  for (const fs::path& place : places) {
    if (holdsModels(place)) return place;
    tried += "\n  " + place.string();
  }
  throw orvel::Error(
      1, std::string("no models found; name their folder in ") + kVariable + ". Tried:" + tried);
}

InstanceModels loadModels(int rate) {
  const fs::path folder = fs::absolute(findModelFolder());
  InstanceModels models{orvel::Library(), {}, {}};
  // The others are not even read: an instance must be quick to make.
  const char* chosen = nullptr;
  for (const Shipped& model : kCleaners) {
    if (!isThere(controlFile(folder, model.name))) continue;
    chosen = model.name;
    if (model.rate <= rate) break;
  }
  models.cleaner = models.library.loadModel(controlFile(folder, chosen).string()).name;
  if (isThere(controlFile(folder, kDetector)))
    models.detector = models.library.loadModel(controlFile(folder, kDetector).string()).name;
  return models;
}

}  // namespace ORVEL::PLUGINS
