#pragma once

#include <QVPlatform/Foundation/Object.h>
#include <QVPlatform/Foundation/Property.h>

#include <memory>
#include <utility>

namespace QVPlatform {

/// The processes in which a web engine runs its pages: web views of one pool share them.
///
/// What a pool is made of, only the engine knows: its engine object. An application that has pages
/// of its own hands in the object that they use; a pool without one gets it from the engine with
/// its first web view. For the default engine it is a WebKitWebContext.
///
/// Threads: every operation may be called from any thread. The last reference to an engine object
/// may be dropped on any of them, so its deleter must be ready for that.
class ProcessPool : public Object {
 public:
  explicit ProcessPool(std::shared_ptr<void> engineObject = nullptr)
      : engineObject_(std::move(engineObject)) {}

  /// Null until somebody set it.
  std::shared_ptr<void> engineObject() const { return engineObject_.get(); }
  void setEngineObject(std::shared_ptr<void> object) { engineObject_.set(std::move(object)); }

 private:
  Property<std::shared_ptr<void>> engineObject_;
};

}  // namespace QVPlatform
