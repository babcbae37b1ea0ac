#pragma once

#include <QVCore/QVCoreConstants.h>
#include <QVPlatform/Dispatch/NotificationCenter.h>
#include <QVPlatform/Foundation/Value.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <semaphore>

namespace QVBenchmark {

/// Counts the answers to hits, and wakes who waits for them once, at the last. The one who waits
/// must sleep meanwhile: waiting for the counter itself, which always changes, it would take turns
/// with the transfers on their processor. A hit that fails ends the program.
class Answers {
 public:
  Answers() {
    QVPlatform::NotificationCenter::defaultCenter()->addObserver(
        this,
        [this](const QVPlatform::Notification&) {
          if (--missing_ == 0) areComplete_.release();
        },
        kQVNotification_HTTPResponse);
    QVPlatform::NotificationCenter::defaultCenter()->addObserver(
        this,
        [](const QVPlatform::Notification& notification) {
          std::fprintf(stderr, "A hit failed: %s\n",
                       QVPlatform::stringWithFormat("%@", {notification.userInfo()}).UTF8String());
          std::_Exit(1);
        },
        kQVNotification_HTTPRequestError);
  }
  ~Answers() { QVPlatform::NotificationCenter::defaultCenter()->removeObserver(this); }
  Answers(const Answers&) = delete;
  Answers& operator=(const Answers&) = delete;

  void expect(int count) { missing_ = count; }
  void wait() { areComplete_.acquire(); }

 private:
  std::atomic<int> missing_{0};
  std::binary_semaphore areComplete_{0};
};

}  // namespace QVBenchmark
