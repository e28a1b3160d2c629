#pragma once

namespace ORVEL::UTILS {

/** Base of objects that must not be copied. */
class NonCopyable {
 public:
  NonCopyable() = default;
  NonCopyable(const NonCopyable&) = delete;
  NonCopyable& operator=(const NonCopyable&) = delete;

 protected:
  ~NonCopyable() = default;
};

/** Base of objects that must not be moved. */
class NonMovable {
 public:
  NonMovable() = default;
  NonMovable(NonMovable&&) = delete;
  NonMovable& operator=(NonMovable&&) = delete;

 protected:
  ~NonMovable() = default;
};

/** Base of objects that stay where they were made: neither copied nor moved. */
class NonCopyMovable : public NonCopyable, public NonMovable {
 protected:
  ~NonCopyMovable() = default;
};

}  // namespace ORVEL::UTILS
