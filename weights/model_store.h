#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "containers/any_map.h"
#include "utils/diagnostics.h"
#include "weights/control_file.h"
#include "weights/weight.h"

namespace ORVEL::WEIGHTS {

/**
 * A loaded model: its weights, shared with other models of the same weight name, and its tuning keys
 * as text.
 */
struct Model {
  explicit Model(UTILS::Diagnostics& context) : diagnostics(context) {}

  std::shared_ptr<const Weight> weight;
  CONTAINERS::AnyMap keys;
  /** Where warnings on the keys go. */
  UTILS::Diagnostics& diagnostics;
};

using ModelEntry = std::shared_ptr<Model>;

/**
 * The loaded models, in order of registration, found by name; entries never change. Not locked but in
 * `load`.
 */
class ModelStore {
 public:
  /** `directory` is what relative paths start from, with its separator. */
  ModelStore(std::string directory, UTILS::Diagnostics& diagnostics)
      : directory_(std::move(directory)), diagnostics_(diagnostics) {}

  /**
   * Loads the control file by lenient rules and registers the model under the name. Gives out what it
   * reads and what is wrong, with these exceptions, which it says nothing about: a name that is in use, a
   * control file that cannot be read, holds no entry or an entry without a value, and a key that is set
   * twice. On failure, also by an exception, nothing is registered.
   *
   * @param mutex guards the store; held to look models up and to register, not while files are read.
   */
  bool load(const std::string& controlFileName, const std::string& modelName, std::mutex& mutex);

  /** Registers a model under a name that is not in use; nothing, when that throws. */
  void add(const std::string& modelName, ModelEntry model, const std::string& newWeightName = "");

  /** The model of that name, or an empty pointer. */
  ModelEntry find(const std::string& modelName) const;

  const std::vector<ModelEntry>& models() const { return models_; }

 private:
  struct Loading;

  std::string resolve(const std::string& path) const;
  std::shared_ptr<const Weight> sharedWeight(const std::string& weightName) const;
  bool includeWeight(const std::string& value, const std::string& controlFileName,
                     Loading& loading) const;
  bool apply(const ControlEntry& entry, const std::string& controlFileName, Loading& loading) const;

  std::string directory_;
  UTILS::Diagnostics& diagnostics_;
  std::vector<ModelEntry> models_;
  std::map<std::string, std::size_t> modelIndex_;
  std::map<std::string, std::size_t> weightIndex_;
};

/** Why a model is refused: the file and what is wrong with it. */
class ModelError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/** A model read by strict rules. */
struct ModelFiles {
  ModelEntry model;
  /** What the weights are called in messages: their path. */
  std::string weightLabel;
};

/**
 * Reads a control file and the weight file that it names. Slashes and backslashes separate folders. A
 * relative weight path is looked for beside the control file, then in `directory`; it must not
 * hold "..". Weights of one file are shared with everybody in the process.
 *
 * @throws ModelError for files that are missing, damaged, truncated or of another kind, for a weight file
 *         that is not named, and for a key that is set twice.
 */
ModelFiles readModelFiles(const std::string& controlFile, const std::string& directory,
                          UTILS::Diagnostics& diagnostics);

/** The same from the content of the two files; a WEIGHT entry is ignored, no text stands for no keys. */
ModelFiles readModelContent(std::string_view control, std::string_view weights,
                            UTILS::Diagnostics& diagnostics);

}  // namespace ORVEL::WEIGHTS
