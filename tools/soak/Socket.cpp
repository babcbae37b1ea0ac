#include "soak/Socket.h"

#include <arpa/inet.h>
#include <linux/sockios.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <utility>

namespace {

constexpr std::string_view kHeaderEnd = "\r\n\r\n";
constexpr std::string_view kLength = "Content-Length: ";

/// Size of the request at the beginning of the text; npos while its header is not whole.
std::size_t sizeOfRequest(const std::string& text) {
  const std::size_t end = text.find(kHeaderEnd);
  if (end == std::string::npos) return end;
  const std::size_t length = text.find(kLength);
  const bool hasBody = length < end;
  return end + kHeaderEnd.size() +
         (hasBody ? std::strtoul(text.c_str() + length + kLength.size(), nullptr, 10) : 0);
}

}  // namespace

Socket Socket::connectedTo(int port) {
  const int file = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  static_cast<void>(connect(file, reinterpret_cast<sockaddr*>(&address), sizeof address));
  return Socket(file);
}

Socket::Socket(Socket&& other) noexcept
    : file_(std::exchange(other.file_, -1)), buffer_(std::move(other.buffer_)) {}

Socket::~Socket() {
  if (file_ >= 0) close(file_);
}

std::string Socket::readRequest() {
  std::size_t size = 0;
  while ((size = sizeOfRequest(buffer_)) > buffer_.size()) {
    char bytes[4096];
    const ssize_t count = recv(file_, bytes, sizeof bytes, 0);
    if (count <= 0) return "";
    buffer_.append(bytes, static_cast<std::size_t>(count));
  }
  std::string request = buffer_.substr(0, size);
  buffer_.erase(0, size);
  return request;
}

bool Socket::hasInput(std::string_view beginning) const {
  char bytes[64];
  const ssize_t count = recv(file_, bytes, sizeof bytes, MSG_PEEK);
  return count > 0 &&
         std::string_view(bytes, static_cast<std::size_t>(count)).starts_with(beginning);
}

void Socket::waitForInput() const {
  pollfd entry{file_, POLLIN, 0};
  poll(&entry, 1, -1);
}

void Socket::waitForClose(int milliseconds) const {
  pollfd entry{file_, POLLRDHUP, 0};
  poll(&entry, 1, milliseconds);
}

bool Socket::send(std::string_view bytes) const {
  const ssize_t sent = ::send(file_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
  return sent == static_cast<ssize_t>(bytes.size());
}

void Socket::finish() const { shutdown(file_, SHUT_WR); }

void Socket::resetAtEnd() const {
  const linger atOnce{1, 0};
  setsockopt(file_, SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
}

void Socket::waitUntilDelivered() const {
  constexpr int kTries = 2000;
  int outstanding = 1;
  for (int i = 0; i < kTries && outstanding > 0; ++i) {
    // Fails when the other side is gone, to which nothing can be delivered.
    if (ioctl(file_, SIOCOUTQ, &outstanding) != 0) return;
    if (outstanding > 0) poll(nullptr, 0, 1);
  }
}
