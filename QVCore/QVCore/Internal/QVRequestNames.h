#pragma once

#include <QVPlatform/Foundation/String.h>

/// Which notifications ask for a request, and what the one is called that answers.
class QVRequestNames {
 public:
  QVRequestNames() = delete;

  /// By the text of the name.
  static bool isRequest(const QVPlatform::String& name);
  /// As QVNetworkManager::requestTypeForNotificationName().
  static QVPlatform::String answerTo(const QVPlatform::String& name);
};
