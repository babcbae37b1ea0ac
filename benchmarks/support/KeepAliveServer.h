#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <poll.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <string>
#include <string_view>
#include <vector>

namespace QVBenchmark {

/// A server in a process of its own that answers every request on 127.0.0.1 with two bytes and
/// keeps its connections open: as little work as a server can have, so that the clients are
/// measured. Make it before the program has a second thread.
class KeepAliveServer {
 public:
  KeepAliveServer() {
    const int listening = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = addressOf(0);
    socklen_t size = sizeof address;
    if (bind(listening, reinterpret_cast<sockaddr*>(&address), size) != 0 ||
        listen(listening, 16) != 0 ||
        getsockname(listening, reinterpret_cast<sockaddr*>(&address), &size) != 0 ||
        pipe(counter_) != 0 || !(shared_ = makeShared()) || (process_ = fork()) < 0) {
      std::perror("no server");
      std::exit(1);
    }
    port_ = ntohs(address.sin_port);
    if (process_ == 0) {
      prctl(PR_SET_PDEATHSIG, SIGKILL);
      serve(listening);
    }
    close(listening);
    close(counter_[1]);
  }
  ~KeepAliveServer() {
    kill(process_, SIGKILL);
    waitpid(process_, nullptr, 0);
    close(counter_[0]);
  }
  KeepAliveServer(const KeepAliveServer&) = delete;
  KeepAliveServer& operator=(const KeepAliveServer&) = delete;

  int port() const { return port_; }
  std::string url() const {
    return "http://127.0.0.1:" + std::to_string(port_) + "/hit?s=1&p=page";
  }
  pid_t process() const { return process_; }

  /// A new connection to it, which the caller closes.
  int connectedSocket() const {
    const int file = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_in address = addressOf(port_);
    const int on = 1;
    setsockopt(file, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    if (connect(file, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
      std::perror("no connection");
      std::exit(1);
    }
    return file;
  }

  using Clock = std::chrono::steady_clock;
  /// When the last request arrived, by the clock that all processes share.
  Clock::time_point lastArrival() const {
    return Clock::time_point(Clock::duration(shared_->lastArrival));
  }
  /// Of how many bytes it was.
  double lastSize() const { return static_cast<double>(shared_->lastSize); }

  /// How many connections were made since the last call.
  int newConnections() const {
    int count = 0;
    for (pollfd ready{counter_[0], POLLIN, 0}; poll(&ready, 1, 0) > 0; ++count) {
      char one = 0;
      if (read(counter_[0], &one, 1) != 1) break;
    }
    return count;
  }

 private:
  static sockaddr_in addressOf(int port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    return address;
  }
  /// What the server tells of the last request.
  struct Shared {
    std::atomic<Clock::rep> lastArrival;
    std::atomic<ssize_t> lastSize;
  };
  static Shared* makeShared() {
    void* const memory =
        mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    return memory == MAP_FAILED ? nullptr : new (memory) Shared;
  }

  [[noreturn]] void serve(int listening) const {
    std::vector<pollfd> files{{listening, POLLIN, 0}};
    for (;;) {
      poll(files.data(), files.size(), -1);
      for (std::size_t i = files.size(); i-- > 1;) {
        if (files[i].revents == 0 || answer(files[i].fd)) continue;
        close(files[i].fd);
        files.erase(files.begin() + static_cast<std::ptrdiff_t>(i));
      }
      if (files[0].revents != 0) {
        const int connection = accept(listening, nullptr, nullptr);
        const int on = 1;
        setsockopt(connection, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
        files.push_back({connection, POLLIN, 0});
        if (write(counter_[1], "c", 1) != 1) _exit(1);
      }
    }
  }

  /// Requests are small and come one at a time: one read holds one of them, whole.
  bool answer(int connection) const {
    static constexpr std::string_view kAnswer = "HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nok";
    char request[65536];
    const ssize_t size = recv(connection, request, sizeof request, 0);
    shared_->lastArrival = Clock::now().time_since_epoch().count();
    if (size > 0) shared_->lastSize = size;
    return size > 0 && send(connection, kAnswer.data(), kAnswer.size(), MSG_NOSIGNAL) > 0;
  }

  int counter_[2]{};
  Shared* shared_ = nullptr;
  pid_t process_ = -1;
  int port_ = 0;
};

}  // namespace QVBenchmark
