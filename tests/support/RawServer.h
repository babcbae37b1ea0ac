#pragma once

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <functional>
#include <list>
#include <mutex>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <utility>

namespace QVTest {

/// A TCP server on an ephemeral port of 127.0.0.1 that does to each connection what a function
/// says, for what no proper HTTP server would do.
class RawServer {
 public:
  class Connection {
   public:
    explicit Connection(int file) : file_(file) {}

    int file() const { return file_; }

    /// The next request, header and body; what has come of it when the connection ends before.
    std::string readRequest() {
      std::string request;
      char buffer[65536];
      while (!isWhole(request)) {
        const ssize_t size = recv(file_, buffer, sizeof buffer, 0);
        if (size <= 0) break;
        request.append(buffer, static_cast<std::size_t>(size));
      }
      return request;
    }
    /// False when the other side has gone.
    bool send(std::string_view bytes) {
      while (!bytes.empty()) {
        const ssize_t size = ::send(file_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (size <= 0) return false;
        bytes.remove_prefix(static_cast<std::size_t>(size));
      }
      return true;
    }
    /// Waits until the other side closes, which is true, or the time is over.
    bool waitForClose(std::chrono::milliseconds time = std::chrono::seconds(30)) {
      pollfd entry{file_, POLLRDHUP, 0};
      return poll(&entry, 1, static_cast<int>(time.count())) > 0;
    }
    /// Tells the other side that nothing more will come.
    void finish() { shutdown(file_, SHUT_WR); }
    /// Lets the end of the connection be a reset, not an orderly close.
    void reset() {
      const linger atOnce{1, 0};
      setsockopt(file_, SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
    }

   private:
    static bool isWhole(const std::string& request) {
      const std::size_t end = request.find("\r\n\r\n");
      if (end == std::string::npos) return false;
      const std::size_t length = request.find("Content-Length: ");
      const std::size_t body = length < end ? std::stoul(request.substr(length + 16)) : 0;
      return request.size() >= end + 4 + body;
    }

    const int file_;
  };
  /// Runs on a thread of its own; the connection is closed when it returns.
  using Script = std::function<void(Connection&)>;

  /// Reads the request and answers with these bytes; then closes.
  static Script sends(const std::string& bytes) {
    return [bytes](Connection& connection) {
      connection.readRequest();
      connection.send(bytes);
    };
  }

  explicit RawServer(Script script) : script_(std::move(script)) {
    file_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    if (bind(file_, reinterpret_cast<sockaddr*>(&address), size) != 0 || listen(file_, 64) != 0 ||
        getsockname(file_, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
      throw std::runtime_error("no server socket");
    }
    port_ = ntohs(address.sin_port);
    acceptor_ = std::thread([this] { acceptConnections(); });
  }
  ~RawServer() {
    shutdown(file_, SHUT_RDWR);
    acceptor_.join();
    {
      const std::lock_guard lock(mutex_);
      for (const Client& client : clients_) shutdown(client.file, SHUT_RDWR);
    }
    for (Client& client : clients_) client.thread.join();
    for (const Client& client : clients_) close(client.file);
    close(file_);
  }

  int port() const { return port_; }
  std::string url(const std::string& target = "/") const {
    return "http://127.0.0.1:" + std::to_string(port_) + target;
  }

 private:
  struct Client {
    int file;
    std::thread thread;
  };

  void acceptConnections() {
    for (int file; (file = accept4(file_, nullptr, nullptr, SOCK_CLOEXEC)) >= 0;) {
      const std::lock_guard lock(mutex_);
      clients_.push_back({file, std::thread([this, file] { serve(file); })});
    }
  }

  void serve(int file) {
    Connection connection(file);
    script_(connection);
    linger ending{};
    socklen_t size = sizeof ending;
    getsockopt(file, SOL_SOCKET, SO_LINGER, &ending, &size);
    if (ending.l_onoff == 0) {
      shutdown(file, SHUT_RDWR);
      return;
    }
    // Only closing resets; the number stays taken, so that the end of the server closes no other.
    const int placeholder = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    dup3(placeholder, file, O_CLOEXEC);
    close(placeholder);
  }

  const Script script_;
  int file_ = -1;
  int port_ = 0;
  std::mutex mutex_;
  std::list<Client> clients_;
  std::thread acceptor_;
};

}  // namespace QVTest
