#include <QVCore/Internal/QVWaitingHits.h>

#include <QVCore/QVHTTPOperation.h>
#include <QVPlatform/Foundation/CallOut.h>
#include <QVPlatform/Foundation/Date.h>
#include <QVPlatform/Foundation/Log.h>

using QVPlatform::callOut;
using QVPlatform::Operation;
using QVPlatform::String;

void QVWaitingHits::append(const Queue& queue, const String& text) {
  if (!queue) return;
  callOut([&] {
    for (const auto& operation : queue->operations()) {
      auto* hit = dynamic_cast<QVHTTPOperation*>(operation.get());
      if (hit) callOut([&] { hit->addPostData(text); });
    }
  });
}

/// Nothing in the core sets the timestamps, so that each hit counts as old and the first one goes.
/// The comparison is for modules that do set them.
bool QVWaitingHits::cancelFirstOlderThan(const Queue& queue, double seconds) {
  if (!queue) return false;
  const double now = QVPlatform::Date::now().secondsSince1970;
  const auto expired = queue->firstOperationPassingTest([=](const Operation& operation) {
    const auto* hit = dynamic_cast<const QVHTTPOperation*>(&operation);
    return hit && now - static_cast<double>(hit->timestamp()) > seconds;
  });
  if (expired) expired->cancel();
  return expired != nullptr;
}

void QVWaitingHits::cancelAtPosition(const Queue& queue, std::uint32_t position) {
  if (const auto operation = queue ? queue->operationAtIndex(position) : nullptr) {
    operation->cancel();
  } else {
    QVPlatform::consoleLog(QVPlatform::stringWithFormat(
        "no operation at position %@ of the hit queue to cancel", {position}));
  }
}
