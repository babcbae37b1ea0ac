#pragma once

#include <QVPlatform/Export.h>
#include <QVPlatform/Foundation/Object.h>
#include <QVPlatform/Foundation/String.h>

#include <memory>

namespace QVPlatform {

/// A directory of files that are shipped with the application or with one of its modules.
///
/// Threads: immutable; every operation may be called from any thread.
class QVPLATFORM_EXPORT Bundle : public Object {
 public:
  /// The application's own: Application::resourceDirectory() as it is at the first call. Never
  /// null, always the same object, never destroyed.
  static std::shared_ptr<Bundle> mainBundle();

  /// The directory need not exist; what is asked of a missing or null one is not there.
  explicit Bundle(String directory);

  /// Path of the file "<name>.<type>", or "<name>" for a null or empty type. Null when there is no
  /// such file, and for a name that would lead out of the directory.
  String pathForResource(const String& name, const String& type) const;

 private:
  const String directory_;
};

}  // namespace QVPlatform
