#pragma once

#include <QVPlatform/Foundation/Value.h>

#include <cstdint>

/// What travels with a request, and comes back with its answer.
class QVRequestData {
 public:
  QVRequestData() = delete;

  /// What was asked for, with the name of its answer and its number. Made at once, since each
  /// change of a dictionary copies its entries. Null for null.
  static QVPlatform::Dictionary numbered(const QVPlatform::Dictionary& asked,
                                         const QVPlatform::String& type, std::uint32_t id);
  /// What the error of a request without a valid URL carries; the log says why.
  static QVPlatform::Dictionary refused(const QVPlatform::Dictionary& data);
  /// As QVNetworkManager::requestDataFromUserInfo().
  static QVPlatform::Dictionary withoutOutcome(const QVPlatform::Dictionary& userInfo);
};
