#include "soak/Server.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <stdexcept>
#include <utility>

#include "soak/Deeds.h"
#include "soak/OfflineFile.h"

namespace {

constexpr int kBacklog = 64;
constexpr int kLongerThanATimeout = 9000;  // milliseconds
constexpr std::string_view kSettled = "GET /settled/";
constexpr std::string_view kConfiguration = "GET /configuration ";
constexpr std::string_view kDone = "HTTP/1.1 204 No Content\r\nConnection: close\r\n\r\n";

std::string_view targetOf(std::string_view request) {
  const std::size_t begin = request.find(' ') + 1;
  return request.substr(begin, request.find(' ', begin) - begin);
}

bool hasOwnBody(const std::string& request, HitID hit) {
  return request.ends_with("\r\n\r\nhit=" + std::to_string(hit));
}

}  // namespace

Server::Server(std::uint64_t seed) : seed_(seed) {
  file_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  if (bind(file_, reinterpret_cast<sockaddr*>(&address), size) != 0 ||
      listen(file_, kBacklog) != 0 ||
      getsockname(file_, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
    throw std::runtime_error("the server gets no port on 127.0.0.1");
  }
  port_ = ntohs(address.sin_port);
  acceptor_ = std::thread([this] { acceptConnections(); });
}

Server::~Server() {
  waitForSilence();
  shutdown(file_, SHUT_RDWR);
  acceptor_.join();
  close(file_);
}

void Server::setLife(int life) {
  const std::lock_guard lock(mutex_);
  life_ = life;
}

void Server::waitForSilence() {
  // Connections are accepted in turn: when this one has been served, none waits before it.
  settle(port_, 0);
  std::unique_lock lock(mutex_);
  ended_.wait(lock, [this] { return open_ == 0; });
}

std::vector<Reception> Server::takeReceptions() {
  const std::lock_guard lock(mutex_);
  return std::exchange(receptions_, {});
}

void Server::settle(int port, HitID hit) {
  Socket socket = Socket::connectedTo(port);
  socket.send(std::string(kSettled) + std::to_string(hit) + " HTTP/1.1\r\n\r\n");
  socket.waitForInput();
}

void Server::acceptConnections() {
  unsigned connection = 0;
  for (int file; (file = accept4(file_, nullptr, nullptr, SOCK_CLOEXEC)) >= 0; ++connection) {
    {
      const std::lock_guard lock(mutex_);
      ++open_;
    }
    std::thread([this, connection, file] {
      serve(connection, file);
      const std::lock_guard lock(mutex_);
      --open_;
      ended_.notify_all();
    }).detach();
  }
}

void Server::serve(unsigned connection, int file) {
  Socket socket(file);
  socket.waitForInput();
  if (!socket.hasInput(kSettled) && isUnwelcome(seed_, connection)) return socket.resetAtEnd();
  for (unsigned place = 0;; ++place) {
    const std::string request = socket.readRequest();
    forgetLateDeed(socket);
    if (request.empty()) return;
    if (request.starts_with(kSettled)) {
      settleHere(hitOf(targetOf(request)));
      socket.send(kDone);
      return;
    }
    if (request.starts_with(kConfiguration)) {
      socket.send(configurationWith(++version_));
      continue;
    }
    if (!respond(socket, note(connection, place, request))) return;
  }
}

Reception Server::note(unsigned connection, unsigned place, const std::string& request) {
  const std::string_view target = targetOf(request);
  const HitID hit = hitOf(target);
  const bool isPost = request.starts_with("POST ");
  const std::lock_guard lock(mutex_);
  const Deed deed = chooseDeed(seed_, hit, counts_[hit]++, target.starts_with("/last/"));
  receptions_.push_back({hit, timeNow(), life_, connection, place, deed, isPost,
                         !isPost || hasOwnBody(request, hit)});
  return receptions_.back();
}

bool Server::respond(Socket& socket, const Reception& reception) {
  const Deed deed = reception.deed;
  const std::string answer = answerTo(reception.hit, deed);
  switch (deed) {
    case Deed::kHang:
      socket.waitForClose(kLongerThanATimeout);
      return false;
    case Deed::kResetAfterRead:
      socket.resetAtEnd();
      return false;
    case Deed::kCloseAfterRead:
      return false;
    case Deed::kResetInAnswer:
      socket.send(answer.substr(0, answer.size() - 1));
      socket.waitUntilDelivered();
      socket.resetAtEnd();
      return false;
    case Deed::kCloseBeforeNext:
      socket.send(answer);
      socket.waitForInput();
      socket.resetAtEnd();
      return false;
    default:
      rememberLateDeed(socket, reception);
      socket.send(answer);
      return deed != Deed::kAnswerAndClose && deed != Deed::kCloseAfter;
  }
}

void Server::rememberLateDeed(Socket& socket, const Reception& reception) {
  if (reception.deed < Deed::kLateClose) return;
  const std::lock_guard lock(mutex_);
  late_[reception.hit] = {&socket, reception.deed};
}

void Server::forgetLateDeed(const Socket& socket) {
  const std::lock_guard lock(mutex_);
  std::erase_if(late_, [&socket](const auto& entry) { return entry.second.socket == &socket; });
}

void Server::settleHere(HitID hit) {
  const std::lock_guard lock(mutex_);
  const auto late = late_.find(hit);
  if (late == late_.end()) return;
  if (late->second.deed == Deed::kLateClose) {
    late->second.socket->finish();
  } else {
    late->second.socket->send(lateBytes(late->second.deed));
  }
  late->second.socket->waitUntilDelivered();
}
