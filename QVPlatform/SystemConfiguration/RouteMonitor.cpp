#include <QVPlatform/SystemConfiguration/RouteMonitor.h>

#include <QVPlatform/Dispatch/Thread.h>
#include <QVPlatform/SystemConfiguration/RouteQuery.h>

#include <libmnl/libmnl.h>
#include <linux/rtnetlink.h>
#include <poll.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <utility>

namespace QVPlatform {
namespace {

constexpr unsigned groupBit(unsigned group) { return 1U << (group - 1); }

constexpr unsigned kGroups = groupBit(RTNLGRP_LINK) | groupBit(RTNLGRP_IPV4_IFADDR) |
                             groupBit(RTNLGRP_IPV6_IFADDR) | groupBit(RTNLGRP_IPV4_ROUTE) |
                             groupBit(RTNLGRP_IPV6_ROUTE) | groupBit(RTNLGRP_IPV4_RULE) |
                             groupBit(RTNLGRP_IPV6_RULE);

constexpr unsigned kLoopbackIndex = 1;

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

RouteMonitor& RouteMonitor::shared() {
  static RouteMonitor& monitor = *new RouteMonitor;  // never destroyed: its thread outlives main
  return monitor;
}

std::shared_ptr<void> RouteMonitor::subscribe(Changed changed) {
  auto subscriber = std::make_shared<const Changed>(std::move(changed));
  const std::lock_guard lock(mutex_);
  if (!isRunning_ && !start()) return nullptr;
  std::erase_if(subscribers_, [](const auto& other) { return other.expired(); });
  subscribers_.push_back(subscriber);
  return std::const_pointer_cast<Changed>(subscriber);
}

bool RouteMonitor::start() {
  mnl_socket* socket = openSocket();
  if (!socket) return false;
  isRunning_ = startThread("QVRouteMonitor", [this, socket] { run(mnl_socket_get_fd(socket)); });
  if (!isRunning_) {
    mnl_socket_close(socket);
    errno = EAGAIN;
  }
  return isRunning_;
}

void RouteMonitor::run(int socket) {
  pollfd events{socket, POLLIN, 0};
  while (poll(&events, 1, -1) >= 0 || errno == EINTR) {
    if (!takeEvents(socket)) break;
    waitForChangeToComplete();
    callSubscribers();
  }
}

void RouteMonitor::callSubscribers() {
  std::vector<std::weak_ptr<const Changed>> subscribers;
  {
    const std::lock_guard lock(mutex_);
    subscribers = subscribers_;
  }
  for (const auto& subscriber : subscribers) {
    if (const auto changed = subscriber.lock()) (*changed)();
  }
}

}  // namespace QVPlatform
