#pragma once

#include <QVPlatform/Foundation/Object.h>
#include <QVPlatform/Foundation/Value.h>

#include <memory>

namespace QVPlatform {

/// Is told when a property of an object that it observes has changed.
class KeyValueObserver {
 public:
  virtual ~KeyValueObserver() = default;

  /// Runs on the thread that changed the property. `context` is what the observer gave when it
  /// began to observe, to tell its own observations from those of a base class.
  virtual void observeValueForKeyPathOfObjectChangeContext(const String& keyPath,
                                                           const std::shared_ptr<Object>& object,
                                                           const Value& change,
                                                           const void* context) = 0;
};

}  // namespace QVPlatform
