#pragma once

#include <QVPlatform/Foundation/Value.h>

#include <vector>

namespace QVPlatform {

/// Lives while a container is destroyed, so that containers in containers, which a thread's stack
/// has no room to destroy from within each other at any depth, are destroyed one after the other
/// from some depth on. So are objects between them, such as stores within stores. Objects that
/// refer to each other without a container between them are their own affair.
class NestedRelease {
 public:
  NestedRelease() noexcept;
  /// On the outermost level, destroys what was kept on the inner ones.
  ~NestedRelease();
  NestedRelease(const NestedRelease&) = delete;
  NestedRelease& operator=(const NestedRelease&) = delete;

  /// To be called with each value of the container that is destroyed. If that lies too deep, a
  /// container or object in it is kept until the outermost level ends; any other value is left
  /// alone.
  void keep(const Value& value) noexcept {
    if (isDeep_) keepOwner(value);
  }

 private:
  void keepOwner(const Value& value) noexcept;

  bool isDeep_;
  std::vector<Value> kept_;  // of the outermost level
};

}  // namespace QVPlatform
