#pragma once

#include <QVPlatform/Foundation/Value.h>

/// What travels with a request, and comes back with its answer.
class QVRequestData {
 public:
  QVRequestData() = delete;

  /// What the error of a request without a valid URL carries; the log says why.
  static QVPlatform::Dictionary refused(const QVPlatform::Dictionary& data);
  /// As QVNetworkManager::requestDataFromUserInfo().
  static QVPlatform::Dictionary withoutOutcome(const QVPlatform::Dictionary& userInfo);
};
