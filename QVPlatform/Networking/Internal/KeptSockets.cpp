#include <QVPlatform/Networking/Internal/KeptSockets.h>

#include <QVPlatform/Foundation/ForkMutex.h>
#include <QVPlatform/Foundation/Lasting.h>

#include <linux/tcp.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <new>

namespace QVPlatform {
namespace {

/// TCP_ESTABLISHED of a header that does not go with the kernel's own, which has the counts.
constexpr int kEstablished = 1;

bool isSilent(curl_socket_t file) {
  char byte;
  return recv(file, &byte, 1, MSG_PEEK | MSG_DONTWAIT) < 0 &&
         (errno == EAGAIN || errno == EWOULDBLOCK);
}

}  // namespace

/// All objects that have sockets, for the child of a fork(), which must let go of them. Whoever
/// changes what is reachable from here holds the mutex.
struct KeptSockets::Registry {
  static Registry& shared() { return Lasting<Registry>::object(); }
  static void abandonAll(void* registry) {
    auto& own = *static_cast<Registry*>(registry);
    own.mutex.assumeHeld();
    for (KeptSockets* sockets : own.all) {
      for (const Socket& socket : sockets->sockets_) ::close(socket.file);
      sockets->sockets_.clear();
    }
  }

  ForkMutex mutex{abandonAll, this};
  std::vector<KeptSockets*> all QV_GUARDED_BY(mutex);
};

KeptSockets::KeptSockets() {
  const Lock lock(Registry::shared().mutex);
  Registry::shared().all.push_back(this);
}

KeptSockets::~KeptSockets() {
  const Lock lock(Registry::shared().mutex);
  std::erase(Registry::shared().all, this);
}

KeptSockets::Received KeptSockets::received(curl_socket_t file) {
  tcp_info info{};
  socklen_t size = sizeof info;
  if (getsockopt(file, IPPROTO_TCP, TCP_INFO, &info, &size) != 0) return {};
  return {info.tcpi_bytes_received, info.tcpi_data_segs_in, info.tcpi_state == kEstablished};
}

void KeptSockets::attachTo(CURL* easy) {
  curl_easy_setopt(easy, CURLOPT_OPENSOCKETFUNCTION, &KeptSockets::open);
  curl_easy_setopt(easy, CURLOPT_OPENSOCKETDATA, this);
  curl_easy_setopt(easy, CURLOPT_CLOSESOCKETFUNCTION, &KeptSockets::close);
  curl_easy_setopt(easy, CURLOPT_CLOSESOCKETDATA, this);
}

bool KeptSockets::beginRequest() {
  wasClosedWithinAnswer_ = false;
  for (Socket& socket : sockets_) socket.seen = received(socket.file);
  return std::ranges::all_of(
      sockets_, [](const Socket& socket) { return socket.isAsLeft() || isSilent(socket.file); });
}

void KeptSockets::endRequest(std::uint64_t bytes) {
  // Of several connections nobody says which one it was: the others are as they were.
  if (sockets_.size() > 1) bytes = 0;
  for (Socket& socket : sockets_) socket.read = socket.seen.bytes + bytes;
}

bool KeptSockets::haveReceivedMoreThan(std::uint64_t bytes) const {
  return std::ranges::any_of(sockets_, [bytes](const Socket& socket) {
    return received(socket.file).bytes > socket.seen.bytes + bytes;
  });
}

curl_socket_t KeptSockets::open(void* sockets, curlsocktype, curl_sockaddr* address) {
  auto& all = static_cast<KeptSockets*>(sockets)->sockets_;
  const Lock lock(Registry::shared().mutex);
  const int file = socket(address->family, address->socktype | SOCK_CLOEXEC, address->protocol);
  if (file < 0) return CURL_SOCKET_BAD;
  try {
    all.push_back({file, {}, 0});
    return file;
  } catch (const std::bad_alloc&) {
    ::close(file);
    errno = ENOMEM;
    return CURL_SOCKET_BAD;
  }
}

int KeptSockets::close(void* sockets, curl_socket_t file) {
  auto& self = *static_cast<KeptSockets*>(sockets);
  const Lock lock(Registry::shared().mutex);
  const auto place = std::ranges::find(self.sockets_, file, &Socket::file);
  if (place != self.sockets_.end()) {
    if (received(file).segments != place->seen.segments) self.wasClosedWithinAnswer_ = true;
    self.sockets_.erase(place);
  }
  return ::close(file);
}

}  // namespace QVPlatform
