#pragma once

#include <QVPlatform/Export.h>
#include <QVPlatform/Foundation/Object.h>

#include <memory>

namespace QVPlatform {

/// Stands for "null" where a nil Value cannot: as an element of a container, and as what was found
/// where finding nothing means something else. As a number it is 0. Keyed archives know it; what is
/// read from them is the one object too.
///
/// Threads: immutable; there is one in the process, which is never destroyed.
class QVPLATFORM_EXPORT Null : public Object {
 public:
  /// The one object of this class.
  static const std::shared_ptr<Null>& null();

  /// "<null>".
  String description() const override;
};

}  // namespace QVPlatform
