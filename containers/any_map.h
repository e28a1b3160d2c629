#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <string>
#include <utility>

#include "utils/orvel_exception.h"

namespace ORVEL::CONTAINERS {

/** Polymorphic base of every value kept in an AnyMap. */
class MapObject {
 public:
  MapObject() = default;
  MapObject(const MapObject&) = delete;
  MapObject& operator=(const MapObject&) = delete;
  virtual ~MapObject() = default;
};

/** Holder of one shared value of type T. */
template <class T>
class Any final : public MapObject {
 public:
  explicit Any(std::shared_ptr<T> held) : value(std::move(held)) {}

  std::shared_ptr<T> value;
};

/** Throws the exception of a required value that is missing or of another type. */
[[noreturn]] inline void throwMissingData(const std::string& key) {
  const std::string message = "ERROR DATA With Key: " + key + "doesn't exists";
  throw UTILS::ORVEL_Exception(message.c_str(), "weights/weight", 176, "getReference");
}

/**
 * Ordered map from names to values of any type. A value fetched stays alive when the map drops it.
 * Not locked: filled while a model loads, only read afterwards.
 */
class AnyMap {
 public:
  /**
   * Stores a copy of the value. Gives a pointer to it when the key was new and an empty one when the
   * key existed; then the old entry is replaced with `overwrite` and kept without.
   */
  template <class T>
  std::shared_ptr<T> set(const std::string& key, T value, bool overwrite) {
    auto held = std::make_shared<T>(std::move(value));
    const auto [entry, isNew] = entries_.try_emplace(key);
    if (isNew || overwrite) {
      entry->second = std::make_shared<Any<T>>(held);
    }
    return isNew ? held : nullptr;
  }

  /** The value, or an empty pointer when the key is missing or holds exactly another type. */
  template <class T>
  std::shared_ptr<T> get(const std::string& key) const {
    const auto entry = entries_.find(key);
    if (entry == entries_.end()) {
      return nullptr;
    }
    const auto* holder = dynamic_cast<const Any<T>*>(entry->second.get());
    return holder == nullptr ? nullptr : holder->value;
  }

  /** The value itself; throws ORVEL_Exception when it is missing or of another type. */
  template <class T>
  T& getReference(const std::string& key) const {
    const std::shared_ptr<T> value = get<T>(key);
    if (value == nullptr) {
      throwMissingData(key);
    }
    return *value;
  }

  std::size_t size() const { return entries_.size(); }
  void clear() { entries_.clear(); }

  auto begin() const { return entries_.begin(); }
  auto end() const { return entries_.end(); }

 private:
  std::map<std::string, std::shared_ptr<MapObject>> entries_;
};

}  // namespace ORVEL::CONTAINERS
