#include "containers/any_map.h"

#include "utils/orvel_exception.h"

namespace ORVEL::CONTAINERS {

void throwMissingData(const std::string& key) {
  const std::string message = "ERROR DATA With Key: " + key + "doesn't exists";
  throw UTILS::ORVEL_Exception(message.c_str(), "weights/weight", 176, "getReference");
}

}  // namespace ORVEL::CONTAINERS
