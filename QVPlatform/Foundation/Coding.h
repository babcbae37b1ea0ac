#pragma once

#include <QVPlatform/Export.h>
#include <QVPlatform/Foundation/String.h>

namespace QVPlatform {

class KeyedArchiver;
class KeyedUnarchiver;

/// What an object can do that goes into a keyed archive and comes back out of it. Implemented by
/// classes that derive from Object; ClassRegistry must know how to make one under the name that it
/// is archived by.
///
/// An object whose operation throws is left out like one that is not Coding, with a line on the
/// console log for each archive; std::bad_alloc alone ends the archiving or unarchiving as a whole.
class QVPLATFORM_EXPORT Coding {
 public:
  virtual ~Coding();

  /// Archives the object's parts, each under a key of its own. Runs on the archiving thread.
  virtual void encodeWithCoder(KeyedArchiver& coder) const = 0;
  /// The name of the class in archives; null, the default, for the object's own className().
  virtual String classNameForCoder() const;
  /// Sets this bare object up from its parts; what is not in the archive decodes as nil. Throws
  /// when they do not make an object. Runs on the unarchiving thread.
  virtual void initWithCoder(KeyedUnarchiver& coder) = 0;
};

}  // namespace QVPlatform
