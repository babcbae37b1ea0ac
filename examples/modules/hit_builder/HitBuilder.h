#pragma once

#include <QVCore/QVCore.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#define HIT_BUILDER_EXPORT __attribute__((visibility("default")))

/// A module that builds hits: one for each page that somebody looks at. It knows the core by
/// notifications alone: it asks for a request, and finds its own among the answers.
///
/// Threads: send() and sendTo() may be called from any thread. An outcome arrives on the thread
/// that has it: the core's hit queue or, for a URL that is refused, the one that called.
class HIT_BUILDER_EXPORT HitBuilder final : public IQVEventSenderDelegate,
                                            public IQVEventListenerDelegate {
 public:
  /// What became of one hit.
  struct Outcome {
    enum class Kind { kAnswered, kFailed, kRefused };

    Kind kind;
    std::uint32_t id;  ///< The core's number for the request.
    std::string page;
    std::string text;  ///< The body of the answer, or what went wrong.
  };
  using OutcomeHandler = std::function<void(const Outcome&)>;

  /// `collectorURL` is where hits go, without a slash at its end.
  HitBuilder(std::string collectorURL, OutcomeHandler handler);
  /// When this returns, the handler is not called any more.
  ~HitBuilder() override;

  /// Sends a hit for the page, with further parameters ("&name=value") if there are any.
  void send(const std::string& page, const std::string& parameters = "");
  /// The same, to another place than the collector.
  void sendTo(const std::string& url, const std::string& page, const std::string& parameters = "");

  void changeNotificationCenter(
      const std::shared_ptr<QVPlatform::NotificationCenter>& center) override;
  void onNotificationReceived(const QVPlatform::Notification& notification) override;

 private:
  void post(const QVPlatform::String& name, const QVPlatform::Dictionary& userInfo);

  const std::string collectorURL_;
  const OutcomeHandler handler_;
  const std::shared_ptr<QVEventSender> sender_;
  const std::shared_ptr<QVEventListener> listener_;
};
