#include <QVPlatform/SystemConfiguration/Kernel/HostResolver.h>

#include <QVPlatform/Dispatch/Internal/Thread.h>
#include <QVPlatform/Foundation/Lasting.h>

#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <utility>

namespace QVPlatform {
namespace {

constexpr int kMaxRetries = 6;
constexpr std::size_t kMaxAddresses = 16;
constexpr std::size_t kMaxRestingHosts = 256;

NetworkAddress addressFrom(const sockaddr& address) {
  if (address.sa_family == AF_INET6) {
    sockaddr_in6 v6;
    std::memcpy(&v6, &address, sizeof v6);
    std::array<std::uint8_t, 16> bytes;
    std::copy_n(v6.sin6_addr.s6_addr, bytes.size(), bytes.begin());
    return NetworkAddress::v6(bytes, v6.sin6_scope_id);
  }
  sockaddr_in v4;
  std::memcpy(&v4, &address, sizeof v4);
  std::array<std::uint8_t, 4> bytes;
  std::memcpy(bytes.data(), &v4.sin_addr, bytes.size());
  return NetworkAddress::v4(bytes);
}

struct Found {
  std::vector<NetworkAddress> addresses;
  bool isCertain = false;  // a name server (or the hosts file) answered, if only that there is none
};

/// Asks the name servers, however long they take to answer.
Found find(const String& name) {
  addrinfo hints{};
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* list = nullptr;
  const int error = getaddrinfo(name.UTF8String(), nullptr, &hints, &list);
  Found found;
  found.isCertain = error == 0 || error == EAI_NONAME || error == EAI_NODATA;
  if (error != 0) return found;
  const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> owner(list, &freeaddrinfo);
  for (; list && found.addresses.size() < kMaxAddresses; list = list->ai_next) {
    if (list->ai_family == AF_INET || list->ai_family == AF_INET6) {
      found.addresses.push_back(addressFrom(*list->ai_addr));
    }
  }
  return found;
}

}  // namespace

HostResolver& HostResolver::shared() { return Lasting<HostResolver>::object(); }

void HostResolver::beginAnew(void* resolver) {
  auto& own = *static_cast<HostResolver*>(resolver);
  own.mutex_.assumeHeld();
  own.isRunning_ = false;
  leaveToParent(std::move(own.changed_));
  own.changed_ = std::make_unique<std::condition_variable>();
}

std::vector<NetworkAddress> HostResolver::addresses(const String& name) {
  const Lock lock(mutex_);
  Host& known = host(name);
  if (known.addresses.empty() && (!known.nextLookup || !isRunning_)) schedule(known);
  return known.addresses;
}

void HostResolver::refresh(const String& name) {
  const Lock lock(mutex_);
  schedule(host(name));
}

std::shared_ptr<void> HostResolver::subscribe(const String& name, Changed changed) {
  const Lock lock(mutex_);
  return host(name).subscribers.add(std::move(changed));
}

HostResolver::Host& HostResolver::host(const String& name) {
  if (hosts_.size() >= kMaxRestingHosts && !hosts_.contains(name)) {
    std::erase_if(hosts_, [](const auto& entry) {
      return !entry.second.nextLookup && entry.second.subscribers.isEmpty();
    });
  }
  return hosts_[name];
}

void HostResolver::schedule(Host& host) {
  host.failures = 0;
  host.nextLookup = Clock::now();
  if (!isRunning_) isRunning_ = startThread("QVHostResolver", [this] { run(); });
  changed_->notify_one();
}

void HostResolver::run() {
  Lock lock(mutex_);
  for (;;) {
    const auto next = nextDue();
    if (next == hosts_.end()) {
      lock.wait(*changed_);
    } else if (*next->second.nextLookup > Clock::now()) {
      lock.waitUntil(*changed_, *next->second.nextLookup);
    } else {
      lookUp(String(next->first));
    }
  }
}

HostResolver::Hosts::iterator HostResolver::nextDue() {
  auto first = hosts_.end();
  for (auto host = hosts_.begin(); host != hosts_.end(); ++host) {
    const auto& due = host->second.nextLookup;
    if (due && (first == hosts_.end() || *due < *first->second.nextLookup)) first = host;
  }
  return first;
}

void HostResolver::lookUp(const String& name) {
  hosts_[name].nextLookup.reset();  // set meanwhile, it asks for one more lookup
  Found found;
  {
    const Unlocked unlocked(mutex_);
    callOut([&] { found = find(name); });
  }
  Host& host = hosts_[name];
  if (!found.addresses.empty()) {
    host.failures = 0;
  } else if (!host.nextLookup && host.failures < kMaxRetries) {
    host.nextLookup = Clock::now() + std::chrono::seconds(1 << host.failures++);
  }
  if (!found.isCertain || found.addresses == host.addresses) return;
  host.addresses = std::move(found.addresses);
  const Subscribers subscribers = host.subscribers;
  const Unlocked unlocked(mutex_);
  subscribers.tell();
}

}  // namespace QVPlatform
