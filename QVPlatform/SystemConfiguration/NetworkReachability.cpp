#include <QVPlatform/SystemConfiguration/NetworkReachability.h>

#include <QVPlatform/Foundation/CallOut.h>
#include <QVPlatform/Foundation/Lasting.h>
#include <QVPlatform/Foundation/Property.h>
#include <QVPlatform/SystemConfiguration/Kernel/KernelReachabilitySource.h>

#include <cerrno>
#include <cstddef>
#include <system_error>
#include <utility>

// A source only says that something may have changed; what the flags are is asked on the target's
// queue. A report from the source puts one evaluation into the queue, unless one waits there
// already. The evaluation asks for the flags and calls back if they are not those that were known.
// It forgets that it waits before it asks: a change that comes while it asks leads to another
// evaluation, and none is missed.
//
// Each queue that is set is an attachment with a number. Evaluations that still wait in an earlier
// queue find that their number is no longer the present one, and do nothing.

namespace QVPlatform {
namespace {

constexpr std::size_t kMaxHostNameLength = 253;

using SourceProperty = Property<std::shared_ptr<ReachabilitySource>>;

SourceProperty& chosenSource() { return Lasting<SourceProperty>::object(); }

int& lastErrorOfThread() {
  thread_local int error = 0;
  return error;
}

bool isShortOfFiles(int error) { return error == EMFILE || error == ENFILE; }

/// Calls the source, which may be the host's, and where it answers with nothing keeps the reason.
template <class Operation>
auto askSource(const Operation& operation) {
  decltype(operation()) answer{};
  const auto ask = [&] {
    errno = 0;
    answer = operation();
  };
  if (!callOut(ask) && !callOut(ask)) errno = ENOMEM;
  if (!answer) lastErrorOfThread() = errno != 0 ? errno : EOPNOTSUPP;
  return answer;
}

}  // namespace

ReachabilitySource::~ReachabilitySource() = default;

std::shared_ptr<NetworkReachability> NetworkReachability::createWithName(const String& name) {
  if (name.isEmpty() || name.view().size() > kMaxHostNameLength) return nullptr;
  return create({name, {}});
}

std::shared_ptr<NetworkReachability> NetworkReachability::createWithAddress(
    const SocketAddress& address) {
  if (address.length != SocketAddress::kLength || address.family != SocketAddress::kFamilyIPv4) {
    return nullptr;
  }
  return create({String(), address});
}

std::shared_ptr<NetworkReachability> NetworkReachability::create(ReachabilityTarget target) {
  auto source = chosenSource().get();
  if (!source) source = kernelReachabilitySource();
  return std::shared_ptr<NetworkReachability>(
      new NetworkReachability(std::move(target), std::move(source)));
}

void NetworkReachability::setSource(std::shared_ptr<ReachabilitySource> source) {
  chosenSource().set(std::move(source));
}

NetworkReachability::NetworkReachability(ReachabilityTarget target,
                                         std::shared_ptr<ReachabilitySource> source)
    : target_(std::move(target)), source_(std::move(source)) {}

NetworkReachability::~NetworkReachability() = default;

bool NetworkReachability::getFlags(NetworkReachabilityFlags* flags) const {
  return askSource([&] { return source_->getFlags(target_, flags); });
}

bool NetworkReachability::setCallback(Callback newCallback) {
  const bool isRemoval = !newCallback;
  auto callback = isRemoval ? nullptr : std::make_shared<const Callback>(std::move(newCallback));
  std::shared_ptr<void> subscription;
  if (!isRemoval) {
    subscription = askSource([&] {
      const auto weakTarget = std::weak_ptr<Object>(weak_from_this());
      return source_->subscribe(target_, [weakTarget] {
        const auto target = weakTarget.lock();
        if (target) static_cast<NetworkReachability&>(*target).scheduleEvaluation();
      });
    });
    if (!subscription) callback = nullptr;
  }
  const bool isDone = isRemoval || subscription;
  {
    const Lock lock(mutex_);
    std::swap(callback_, callback);
    std::swap(subscription_, subscription);
  }
  return isDone;  // the earlier callback and subscription go here, after the lock is released
}

bool NetworkReachability::setDispatchQueue(std::shared_ptr<SerialQueue> queue) {
  NetworkReachabilityFlags flags = 0;
  // Without a file descriptor to ask with, the flags count as 0 until there is one again.
  if (queue && !getFlags(&flags) && !isShortOfFiles(lastErrorOfThread())) return false;
  {
    const Lock lock(mutex_);
    if (!queue_) knownFlags_ = flags;
    std::swap(queue_, queue);
    ++attachment_;
    isEvaluationPending_ = false;
  }
  scheduleEvaluation();  // for a change between the look at the flags and the new queue
  return true;
}

/// However many changes a burst has, at most one evaluation waits in the queue.
void NetworkReachability::scheduleEvaluation() {
  std::shared_ptr<SerialQueue> queue;
  std::uint64_t attachment = 0;
  {
    const Lock lock(mutex_);
    if (!queue_ || isEvaluationPending_) return;
    isEvaluationPending_ = true;
    queue = queue_;
    attachment = attachment_;
  }
  const bool isScheduled = tryTwice([&] {
    return queue->async([weakTarget = weak_from_this(), attachment] {
      const auto target = weakTarget.lock();
      if (target) static_cast<NetworkReachability&>(*target).evaluate(attachment);
    });
  });
  const Lock lock(mutex_);
  if (!isScheduled && attachment == attachment_) isEvaluationPending_ = false;
}

/// Runs on the queue. An attachment that is not the present one belongs to an earlier queue.
void NetworkReachability::evaluate(std::uint64_t attachment) {
  {
    const Lock lock(mutex_);
    if (attachment != attachment_) return;
    isEvaluationPending_ = false;  // before the look, so that a later change leads to another one
  }
  NetworkReachabilityFlags flags = 0;
  if (!getFlags(&flags)) return;
  std::shared_ptr<const Callback> callback;
  {
    const Lock lock(mutex_);
    if (attachment != attachment_ || flags == knownFlags_) return;
    knownFlags_ = flags;
    callback = callback_;
  }
  if (callback) (*callback)(flags);
}

int NetworkReachability::lastError() noexcept { return lastErrorOfThread(); }

String NetworkReachability::lastErrorString() {
  return String(std::generic_category().message(lastErrorOfThread()));
}

}  // namespace QVPlatform
