#pragma once

#include <QVPlatform/Foundation/ForkMutex.h>

#include <utility>

namespace QVPlatform {

/// A variable that several threads may read and replace: each access is atomic by itself.
template <class T>
class Property {
 public:
  Property() = default;
  explicit Property(T value) : value_(std::move(value)) {}

  T get() const {
    const Lock lock(mutex_);
    return value_;
  }
  /// The earlier value is destroyed after the lock is released, since its destructor may call out.
  void set(T value) { static_cast<void>(exchange(std::move(value))); }
  /// Returns the earlier value.
  T exchange(T value) {
    const Lock lock(mutex_);
    std::swap(value_, value);
    return value;
  }

 private:
  mutable ForkMutex mutex_;
  T value_ QV_GUARDED_BY(mutex_){};
};

}  // namespace QVPlatform
