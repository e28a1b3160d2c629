#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "orvel/orvel.hpp"

namespace ORVEL::PLUGINS {

/** The models of one instance, in a context of its own. */
struct InstanceModels {
  orvel::Library library;
  std::string cleaner;
  std::optional<std::string> detector;  ///< nothing where the folder has none
};

/**
 * The folder of the shipped models: the environment's ORVEL_MODEL_DIR, else the first with a cleaning model
 * among models/ and share/orvel/models/ in the plugin's own folder and in those above it (a bundle that
 * carries its models, an installation, a build in the source tree), else the system's folders.
 *
 * @throws orvel::Error naming every place that was tried.
 */
std::filesystem::path findModelFolder();

/**
 * Loads the shipped detector and the cleaning model that `orvel clean` takes for a rate (Hz): the one nearest
 * to it without being above it, else the lowest.
 *
 * @throws orvel::Error when there are no models or one that is loaded is damaged.
 */
InstanceModels loadModels(int rate);

}  // namespace ORVEL::PLUGINS
