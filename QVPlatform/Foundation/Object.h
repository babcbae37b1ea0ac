#pragma once

#include <QVPlatform/Export.h>
#include <QVPlatform/Foundation/String.h>

#include <memory>

namespace QVPlatform {

/// Base of whatever can post a notification, be posted in one, or be logged.
///
/// Lifetime: objects are meant to be held by std::shared_ptr (std::make_shared), so that what keeps
/// a notification keeps its object. One with automatic storage works too, as long as nothing that
/// it posted is kept longer than it lives.
class QVPLATFORM_EXPORT Object : public std::enable_shared_from_this<Object> {
 public:
  virtual ~Object();

  /// The unqualified name of the object's class ("QVLogger").
  virtual String className() const;
  /// What "%@" prints for this object; by default "<QVLogger: 0x5581c0de>". Never null. May be
  /// called from any thread.
  virtual String description() const;

  /// A reference to this object: an owning one when a std::shared_ptr holds it, else a plain one.
  std::shared_ptr<Object> self();

 protected:
  Object() = default;
  Object(const Object&) = default;
  Object& operator=(const Object&) = default;
};

}  // namespace QVPlatform
