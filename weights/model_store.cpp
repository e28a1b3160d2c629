#include "weights/model_store.h"

namespace ORVEL::WEIGHTS {

namespace {

constexpr std::size_t kLongestRefusedWeightName = 4;

bool isAbsolute(const std::string& path) {
  return path.size() >= 3 && path[1] == ':' && path[2] == '\\';
}

// Only the backslash separates directories here, on every system.
std::string weightName(const std::string& path) {
  const std::size_t separator = path.rfind('\\');
  const std::string file = separator == std::string::npos ? path : path.substr(separator + 1);
  return file.substr(0, file.rfind('.'));
}

}  // namespace

/** A model while its control file is read. */
struct ModelStore::Loading {
  /** Of the store. */
  std::mutex& mutex;
  ModelEntry model;
  /** Name of a weight set loaded for this model; empty when its weights are shared. */
  std::string newWeightName;
};

std::string ModelStore::resolve(const std::string& path) const {
  return isAbsolute(path) ? path : directory_ + path;
}

ModelEntry ModelStore::find(const std::string& modelName) const {
  const auto position = modelIndex_.find(modelName);
  return position == modelIndex_.end() ? nullptr : models_[position->second];
}

std::shared_ptr<const Weight> ModelStore::sharedWeight(const std::string& weightName) const {
  const auto known = weightIndex_.find(weightName);
  return known == weightIndex_.end() ? nullptr : models_[known->second]->weight;
}

bool ModelStore::includeWeight(const std::string& value, const std::string& controlFileName,
                               Loading& loading) const {
  diagnostics_.note("WEIGHT ", value);
  const std::string path = resolve(value);
  const std::string name = weightName(path);
  if (name.size() <= kLongestRefusedWeightName) {
    diagnostics_.warn("ERROR WEIGHT NAME ISNT BIGGER ENOUGHT\n");
    return true;
  }
  {
    const std::lock_guard lock(loading.mutex);
    loading.model->weight = sharedWeight(name);
  }
  if (loading.model->weight != nullptr) {
    return true;
  }
  loading.newWeightName = name;
  loading.model->weight = openWeightFile(path).weight;
  if (loading.model->weight == nullptr) {
    diagnostics_.warnLine("WARNING weight isn't loaded \n control file", controlFileName,
                          " \n weigth file: ", path);
    return false;
  }
  if (loading.model->weight->values().size() == 0) {
    diagnostics_.warnLine("Warning Nothing added from weight");
  }
  return true;
}

bool ModelStore::apply(const ControlEntry& entry, const std::string& controlFileName,
                       Loading& loading) const {
  if (entry.key == "CONTROLFILE") {
    diagnostics_.warnLine("WARNING there are CONTROLFILE parameter inside of controlFile, skipped");
    return true;
  }
  if (entry.key == "WEIGHT") {
    if (loading.model->weight != nullptr) {
      diagnostics_.warnLine("WARNING multiple weight including, weight exists.");
      return true;
    }
    return includeWeight(entry.value, controlFileName, loading);
  }
  diagnostics_.note("ENVIRONMENT KEY-\"", entry.key, "\" VALUE-\"", entry.value, "\"");
  return loading.model->keys.set<std::string>(entry.key, entry.value, true) != nullptr;
}

bool ModelStore::load(const std::string& controlFileName, const std::string& modelName,
                      std::mutex& mutex) {
  {
    const std::lock_guard lock(mutex);
    if (modelIndex_.contains(modelName)) {
      return false;
    }
  }
  const auto entries = readControlFile(resolve(controlFileName));
  if (!entries.has_value() || entries->empty()) {
    return false;
  }
  Loading loading{mutex, std::make_shared<Model>(diagnostics_), {}};
  for (const ControlEntry& entry : *entries) {
    if (!apply(entry, controlFileName, loading)) {
      return false;
    }
  }
  if (modelName.empty() || loading.model->weight == nullptr) {
    diagnostics_.warnLine(
        "Warning Weight name isn't included or weight has beeen included before \n");
    return false;
  }
  const std::lock_guard lock(mutex);
  // Another thread may have been faster.
  if (modelIndex_.contains(modelName)) {
    return false;
  }
  if (auto shared = sharedWeight(loading.newWeightName)) {
    loading.model->weight = std::move(shared);
    loading.newWeightName.clear();
  }
  add(modelName, loading.model, loading.newWeightName);
  return true;
}

// What can fail comes first.
void ModelStore::add(const std::string& modelName, ModelEntry model,
                     const std::string& newWeightName) {
  std::map<std::string, std::size_t> index{{modelName, models_.size()}};
  std::map<std::string, std::size_t> weight;
  if (!newWeightName.empty()) {
    weight.emplace(newWeightName, models_.size());
  }
  models_.push_back(std::move(model));
  modelIndex_.merge(index);
  weightIndex_.merge(weight);
}

}  // namespace ORVEL::WEIGHTS
