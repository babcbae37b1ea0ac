#pragma once

#include <QVPlatform/Export.h>

namespace QVPlatform {

class KeyedArchiver;
class KeyedUnarchiver;

/// What an object can do that goes into a keyed archive and comes back out of it. Implemented by
/// classes that derive from Object; ClassRegistry must know how to make one under its className().
class QVPLATFORM_EXPORT Coding {
 public:
  virtual ~Coding();

  /// Archives the object's parts, each under a key of its own. Runs on the archiving thread.
  virtual void encodeWithCoder(KeyedArchiver& coder) const = 0;
  /// Sets this bare object up from its parts; what is not in the archive decodes as nil. Runs on
  /// the unarchiving thread.
  virtual void initWithCoder(KeyedUnarchiver& coder) = 0;
};

}  // namespace QVPlatform
