#pragma once

#include <QVPlatform/Dispatch/NotificationCenter.h>
#include <QVPlatform/Foundation/String.h>

#include <algorithm>
#include <initializer_list>
#include <memory>
#include <utility>

/// Hears notifications for as long as it lives:
///
///     const QVObservation answers(kQVNotification_HTTPResponse, [](const Notification& answer) {
///       std::cout << QVUserInfo(answer).content() << '\n';
///     });
///
/// Threads: the callback runs on the thread that posts, on several at once if several do. The
/// observation itself is for one thread at a time, and may be ended by its own callback.
/// Lifetime: it keeps its center. When end() or the destructor returns, the callback does not run
/// any more, but for one that the caller itself is in; so the caller holds no lock that the
/// callback takes. It need not end before the process does.
class QVObservation {
 public:
  using Center = std::shared_ptr<QVPlatform::NotificationCenter>;
  using Callback = QVPlatform::NotificationCenter::Callback;

  /// Hears nothing.
  QVObservation() noexcept = default;
  /// Hears what any object posts under exactly this name, on the default center if that is null.
  QVObservation(const QVPlatform::String& name, Callback callback, Center center = nullptr)
      : QVObservation({name}, std::move(callback), std::move(center)) {}
  /// The same for several names: all of them, or none.
  QVObservation(std::initializer_list<QVPlatform::String> names, Callback callback,
                Center center = nullptr)
      : registration_(std::make_unique<Registration>(std::move(center))) {
    const auto isHeard = [&](const QVPlatform::String& name) {
      return registration_->center->addObserver(registration_.get(), callback, name);
    };
    if (!std::all_of(names.begin(), names.end(), isHeard)) end();
  }
  QVObservation(QVObservation&&) noexcept = default;
  QVObservation& operator=(QVObservation&&) noexcept = default;

  /// False after end(), and if a name was null or memory too short to register it.
  bool isActive() const noexcept { return registration_ != nullptr; }
  /// Hears nothing any more.
  void end() noexcept { registration_.reset(); }

 private:
  /// Its address is what the center knows the observation by, wherever that is moved to.
  struct Registration {
    explicit Registration(Center chosen)
        : center(chosen ? std::move(chosen)
                        : Center(QVPlatform::NotificationCenter::defaultCenter())) {}
    ~Registration() { center->removeObserver(this); }
    Registration(const Registration&) = delete;
    Registration& operator=(const Registration&) = delete;

    const Center center;
  };

  std::unique_ptr<Registration> registration_;
};
