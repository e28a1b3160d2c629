#pragma once

namespace ORVEL::CONTAINERS {

/** Polymorphic base of every value kept in an AnyMap. */
class MapObject {
 public:
  MapObject() = default;
  MapObject(const MapObject&) = delete;
  MapObject& operator=(const MapObject&) = delete;
  virtual ~MapObject() = default;
};

}  // namespace ORVEL::CONTAINERS
