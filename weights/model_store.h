#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "containers/any_map.h"
#include "weights/control_file.h"
#include "weights/weight.h"

namespace ORVEL::WEIGHTS {

/**
 * A loaded model: its weights, shared with other models of the same weight name, and its tuning keys
 * as text. Windows and transforms made for the model are kept among the keys under "GEN_" names.
 */
struct Model {
  std::shared_ptr<Weight> weight;
  CONTAINERS::AnyMap keys;
};

using ModelEntry = std::shared_ptr<Model>;

/**
 * The loaded models, in order of registration, found by name. Not locked: `load` is called by one
 * thread at a time; entries never change afterwards.
 */
class ModelStore {
 public:
  /** `directory` is what relative paths start from, with its separator. */
  explicit ModelStore(std::string directory) : directory_(std::move(directory)) {}

  /**
   * Loads the control file and registers the model under the name. Says on standard output what it
   * reads and what is wrong. On failure nothing is registered.
   */
  bool load(const std::string& controlFileName, const std::string& modelName);

  /** The model of that name, or an empty pointer. */
  ModelEntry find(const std::string& modelName) const;

  const std::vector<ModelEntry>& models() const { return models_; }

 private:
  struct Loading;

  std::string resolve(const std::string& path) const;
  bool includeWeight(const std::string& value, const std::string& controlFileName,
                     Loading& loading) const;
  bool apply(const ControlEntry& entry, const std::string& controlFileName, Loading& loading) const;

  std::string directory_;
  std::vector<ModelEntry> models_;
  std::map<std::string, std::size_t> modelIndex_;
  std::map<std::string, std::size_t> weightIndex_;
};

}  // namespace ORVEL::WEIGHTS
