#pragma once

#include <QVCore/Export.h>
#include <QVPlatform/Foundation/Value.h>

/// The kit's door to the application's user defaults. Both operations may be called from any
/// thread.
class QVCORE_EXPORT QVUserDefaults {
 public:
  /// Stores the value under the label and writes it through to disk at once; nil removes the label.
  /// When writing fails the value is kept for the running process. A value that user defaults
  /// cannot keep (see UserDefaults) changes nothing.
  static void saveInfoToUserDefaultsForLabel(const QVPlatform::Value& info,
                                             const QVPlatform::String& label);
  /// The value stored under the label, or nil.
  static QVPlatform::Value retrieveInfoFromUserDefaults(const QVPlatform::String& label);
};
