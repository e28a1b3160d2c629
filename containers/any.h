#pragma once

#include <memory>
#include <utility>

#include "containers/map_object.h"

namespace ORVEL::CONTAINERS {

/** Holder of one shared value of type T. */
template <class T>
class Any final : public MapObject {
 public:
  explicit Any(std::shared_ptr<T> held) : value(std::move(held)) {}

  std::shared_ptr<T> value;
};

}  // namespace ORVEL::CONTAINERS
