#pragma once

#include <QVCore/QVNetworkManager.h>

#include <array>
#include <cstdint>
#include <memory>

// Which event holds or resumes the network manager's queues, and under which conditions.
//
// Three gates hold hits: consent that is awaited, a network that is down, and a user agent that is
// awaited. No event asks for all three, and this is meant: each asks for those that it brings no
// news of and that it may not resume hits against. So InternetUp does not ask for the network, and
// a start does not ask for consent. A user agent resumes hits in a kit that was started, and not in
// one that was stopped, while InternetUp and the foreground resume both. Where an event may not
// resume hits, it leaves the queue as it is, held or not. What consent needs has one gate, the
// network, and rests while the application is in the background.

/// What may hold or resume a queue. A stop does neither: a kit that ran goes on sending.
enum class QVQueueEvent {
  kQueuesMade,
  kStartingTheSDK,
  kUserAgentAwaited,
  kAwaitedUserAgentCame,
  kInternetDown,
  kInternetUp,
  kForeground,
  kBackground,
};

/// What an event does to one queue.
struct QVQueueStep {
  enum Queue { kHits, kConsent } queue;
  enum Setting { kLeave, kResume, kHold } setting;
};

/// In the order in which they are taken; what is left out leaves its queue as it is.
using QVQueueSteps = std::array<QVQueueStep, 2>;

/// What the event does. `state` is the manager's before the event, and the network is asked by
/// `isReachable()`, at most once and only where the answer counts.
template <class IsReachable>
QVQueueSteps QVQueueStepsAfter(QVQueueEvent event, std::int32_t state, bool isUserAgentAwaited,
                               const IsReachable& isReachable) {
  using enum QVQueueStep::Queue;
  using enum QVQueueStep::Setting;
  const auto holdIf = [](bool isHeld) { return isHeld ? kHold : kResume; };
  const bool isConsentAwaited = state == QVManagerStateWaitingForStart;
  switch (event) {
    case QVQueueEvent::kQueuesMade: {
      const bool isDown = !isReachable();
      return {{{kHits, holdIf(isConsentAwaited || isDown)}, {kConsent, holdIf(isDown)}}};
    }
    case QVQueueEvent::kStartingTheSDK:
      return {{{kHits, holdIf(isUserAgentAwaited || !isReachable())}}};
    case QVQueueEvent::kUserAgentAwaited:
      return {{{kHits, kHold}}};
    case QVQueueEvent::kAwaitedUserAgentCame: {
      const bool mayResume = state == QVManagerStateStarted;
      return {{{kHits, mayResume ? holdIf(!isReachable()) : kLeave}}};
    }
    case QVQueueEvent::kInternetDown:
      return {{{kHits, kHold}, {kConsent, kHold}}};
    case QVQueueEvent::kInternetUp:
      return {
          {{kHits, isConsentAwaited ? kLeave : holdIf(isUserAgentAwaited)}, {kConsent, kResume}}};
    case QVQueueEvent::kForeground: {
      const bool mayResume = !isConsentAwaited && isReachable();
      return {{{kHits, mayResume ? holdIf(isUserAgentAwaited) : kLeave}, {kConsent, kResume}}};
    }
    case QVQueueEvent::kBackground:
      return {{{kConsent, kHold}, {kHits, kHold}}};
  }
  return {};
}

/// Does that to the queues, either of which may be null.
inline void QVTakeQueueSteps(const QVQueueSteps& steps,
                             const std::shared_ptr<QVPlatform::OperationQueue>& hits,
                             const std::shared_ptr<QVPlatform::OperationQueue>& consent) {
  for (const auto& [which, setting] : steps) {
    const auto& queue = which == QVQueueStep::kHits ? hits : consent;
    if (queue && setting != QVQueueStep::kLeave) queue->setSuspended(setting == QVQueueStep::kHold);
  }
}
