#include <QVPlatform/SystemConfiguration/Kernel/RouteMonitor.h>

#include <QVPlatform/Dispatch/Internal/Thread.h>
#include <QVPlatform/Foundation/Lasting.h>
#include <QVPlatform/SystemConfiguration/Kernel/RouteQuery.h>

#include <libmnl/libmnl.h>
#include <linux/rtnetlink.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <thread>
#include <utility>

namespace QVPlatform {
namespace {

consteval unsigned groupBit(unsigned group) { return 1U << (group - 1); }

constexpr unsigned kGroups = groupBit(RTNLGRP_LINK) | groupBit(RTNLGRP_IPV4_IFADDR) |
                             groupBit(RTNLGRP_IPV6_IFADDR) | groupBit(RTNLGRP_IPV4_ROUTE) |
                             groupBit(RTNLGRP_IPV6_ROUTE) | groupBit(RTNLGRP_IPV4_RULE) |
                             groupBit(RTNLGRP_IPV6_RULE);

constexpr unsigned kLoopbackIndex = 1;

constexpr std::chrono::milliseconds kFirstPause{100};
constexpr std::chrono::milliseconds kLongestPause{60'000};

/// Whether what was missing may be there again without the kernel's saying so.
bool isShortage(int error) {
  return error == EMFILE || error == ENFILE || error == ENOMEM || error == ENOBUFS ||
         error == EAGAIN;
}

/// A socket that hears the kernel's events; null, with errno, when there is none to be had.
mnl_socket* openSocket() {
  mnl_socket* socket = mnl_socket_open2(NETLINK_ROUTE, SOCK_CLOEXEC | SOCK_NONBLOCK);
  if (!socket || mnl_socket_bind(socket, kGroups, MNL_SOCKET_AUTOPID) == 0) return socket;
  const int error = errno;
  mnl_socket_close(socket);
  errno = error;
  return nullptr;
}

/// Takes what waits in the socket. What the events say does not matter, since whoever is told of a
/// change looks at the whole again; so losing some to a full buffer (ENOBUFS) does not matter
/// either. False when the socket will never speak again.
bool takeEvents(int socket) {
  std::array<char, 64> start;  // the rest of each event is dropped
  for (;;) {
    if (recv(socket, start.data(), start.size(), 0) >= 0) continue;
    if (errno == EAGAIN) return true;
    if (errno != ENOBUFS && errno != EINTR) return false;
  }
}

/// The kernel speaks in the middle of a change: it says that a link is down, or an address gone,
/// before it takes away the routes that this ends, and about those it is silent. It answers a
/// question about a link only when the change is complete.
void waitForChangeToComplete() { RouteQuery().interface(kLoopbackIndex); }

}  // namespace

RouteMonitor& RouteMonitor::shared() { return Lasting<RouteMonitor>::object(); }

void RouteMonitor::beginAnew(void* monitor) {
  auto& own = *static_cast<RouteMonitor*>(monitor);
  own.mutex_.assumeHeld();
  if (own.socket_ >= 0) close(own.socket_);
  own.socket_ = -1;
  own.isRetrying_ = false;
}

std::shared_ptr<void> RouteMonitor::subscribe(Changed changed) {
  const Lock lock(mutex_);
  Subscribers extended = subscribers_;
  auto subscription = extended.add(std::move(changed));
  if (socket_ < 0 && !start() && !startRetrying(errno)) return nullptr;
  subscribers_ = std::move(extended);
  return subscription;
}

void RouteMonitor::callWhenKernelAnswers(int error) {
  const Lock lock(mutex_);
  if (!subscribers_.isEmpty()) startRetrying(error);
}

bool RouteMonitor::start() {
  mnl_socket* socket = openSocket();
  if (!socket) return false;
  if (startThread("QVRouteMonitor", [this, socket] { run(socket); })) {
    socket_ = mnl_socket_get_fd(socket);
    return true;
  }
  mnl_socket_close(socket);
  errno = EAGAIN;
  return false;
}

bool RouteMonitor::startRetrying(int error) {
  if (!isShortage(error)) return false;
  if (!isRetrying_) isRetrying_ = startThread("QVRouteRetry", [this] { retry(); });
  errno = error;
  return isRetrying_;
}

bool RouteMonitor::isRetryOver() {
  if (!subscribers_.isEmpty()) {
    if (socket_ < 0 && !start()) return false;
    RouteQuery query;
    query.interface(kLoopbackIndex);
    if (query.hasFailed()) return false;
  }
  isRetrying_ = false;
  return true;
}

// The threads.

void RouteMonitor::run(mnl_socket* socket) {
  pollfd events{mnl_socket_get_fd(socket), POLLIN, 0};
  while (poll(&events, 1, -1) >= 0 || errno == EINTR) {
    if (!takeEvents(events.fd)) break;
    callOut(waitForChangeToComplete);
    callSubscribers();
  }
  {
    const Lock lock(mutex_);
    socket_ = -1;
  }
  mnl_socket_close(socket);
}

void RouteMonitor::retry() {
  bool isOver = false;
  for (auto pause = kFirstPause; !isOver; pause = std::min(2 * pause, kLongestPause)) {
    std::this_thread::sleep_for(pause);
    callOut([&] {
      const Lock lock(mutex_);
      isOver = isRetryOver();
    });
  }
  callSubscribers();
}

void RouteMonitor::callSubscribers() {
  Subscribers subscribers;
  {
    const Lock lock(mutex_);
    subscribers = subscribers_;
  }
  subscribers.tell();
}

}  // namespace QVPlatform
