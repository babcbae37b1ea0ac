#pragma once

#include <QVCore/QVCore.h>
#include <QVPlatform/Dispatch/NotificationCenter.h>

#include <atomic>
#include <cstdint>
#include <memory>

#include "send_hits/Console.h"
#include "send_hits/HitReader.h"

/// Hands hits to the core and takes down what becomes of them.
///
/// The core drops hits when 2000 wait in its queue. So no more than kWindow are handed in at once:
/// each one comes back, as an answer or as an error, and makes room for another.
///
/// Threads: used by one thread; outcomes arrive on whichever the core posts them.
class HitSender {
 public:
  static constexpr std::uint64_t kWindow = 512;
  /// Room is announced when this few are under way, so that hits are handed in by the batch.
  static constexpr std::uint64_t kLowWater = kWindow / 2;

  explicit HitSender(Console& console);
  ~HitSender();
  HitSender(const HitSender&) = delete;
  HitSender& operator=(const HitSender&) = delete;

  void send(const HitReader::Hit& hit);

  /// Hits handed in that have not come back.
  std::uint64_t underWay() const { return underWay_; }
  bool hasRoom() const;
  /// Readable when underWay() has come down to kLowWater or to none; acknowledge() ends that.
  int fileDescriptor() const { return wakeUp_; }
  void acknowledge();

  Counts counts() const { return {sent_, answered_, failed_}; }

 private:
  void onOutcome(const QVPlatform::Notification& notification);
  void onNetworkChange(const QVPlatform::Notification& notification);
  void wakeUp();

  Console& console_;
  const int wakeUp_;
  const QVPlatform::String run_;
  const std::shared_ptr<QVPlatform::NotificationCenter> center_ =
      QVPlatform::NotificationCenter::defaultCenter();
  std::atomic<std::uint64_t> underWay_{0};
  std::atomic<std::uint64_t> sent_{0};
  std::atomic<std::uint64_t> answered_{0};
  std::atomic<std::uint64_t> failed_{0};
};
