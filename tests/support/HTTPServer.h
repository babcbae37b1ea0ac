#pragma once

#include <httplib.h>
#include <sys/resource.h>

#include "Test.h"

namespace QVTest {

/// An HTTP server on an ephemeral port of 127.0.0.1 that answers by a function and remembers what
/// it was asked. Connections stay open until the client or the end of the server closes them.
class HTTPServer {
 public:
  struct Request {
    std::string method;
    std::string target;  // path and query
    std::string body;
    httplib::Headers fields;
    int clientPort;  // two requests with one client port came over one connection

    /// The field's value; empty when it is missing.
    std::string field(const std::string& name) const {
      const auto place = fields.find(name);
      return place == fields.end() ? std::string() : place->second;
    }
  };
  using Handler = std::function<void(const httplib::Request&, httplib::Response&)>;

  /// Without a handler every answer is 200 with the body "ok".
  explicit HTTPServer(Handler handler = answerOK)
      : HTTPServer(std::make_unique<httplib::Server>(), "http", std::move(handler)) {}
  /// https, with a certificate and its key in PEM files.
  HTTPServer(const std::string& certificateFile, const std::string& keyFile,
             Handler handler = answerOK)
      : HTTPServer(std::make_unique<httplib::SSLServer>(certificateFile.c_str(), keyFile.c_str()),
                   "https", std::move(handler)) {}
  ~HTTPServer() {
    server_->stop();
    shutDownConnections();
    thread_.join();
  }

  int port() const { return port_; }
  std::string url(const std::string& target = "/") const {
    return scheme_ + "://127.0.0.1:" + std::to_string(port_) + target;
  }

  std::vector<Request> requests() const {
    const std::lock_guard lock(mutex_);
    return requests_;
  }
  /// What has come once `count` requests have, or after ten seconds without them.
  std::vector<Request> waitForRequests(std::size_t count) const {
    std::unique_lock lock(mutex_);
    arrived_.wait_for(lock, std::chrono::seconds(10), [&] { return requests_.size() >= count; });
    return requests_;
  }

  static void answerOK(const httplib::Request&, httplib::Response& response) {
    response.set_content("ok", "text/plain");
  }

 private:
  HTTPServer(std::unique_ptr<httplib::Server> server, std::string scheme, Handler handler)
      : server_(std::move(server)), scheme_(std::move(scheme)), handler_(std::move(handler)) {
    const auto answer = [this](const httplib::Request& request, httplib::Response& response) {
      record(request);
      handler_(request, response);
    };
    server_->Get(".*", answer).Post(".*", answer).Put(".*", answer).Delete(".*", answer);
    server_->set_keep_alive_max_count(1'000'000).set_keep_alive_timeout(60).set_tcp_nodelay(true);
    port_ = server_->bind_to_any_port("127.0.0.1");
    thread_ = std::thread([this] { server_->listen_after_bind(); });
  }

  void record(const httplib::Request& request) {
    const std::lock_guard lock(mutex_);
    requests_.push_back(
        {request.method, request.target, request.body, request.headers, request.remote_port});
    arrived_.notify_all();
  }

  /// The server's threads wait for the next request of their connections and would hold up its end.
  /// It does not tell its connections, so they are found among the open files by their port.
  void shutDownConnections() const {
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    for (int file = 0; file < static_cast<int>(std::min<rlim_t>(limit.rlim_cur, 4096)); ++file) {
      sockaddr_in own{};
      socklen_t size = sizeof own;
      if (getsockname(file, reinterpret_cast<sockaddr*>(&own), &size) == 0 &&
          own.sin_family == AF_INET && ntohs(own.sin_port) == port_) {
        shutdown(file, SHUT_RDWR);
      }
    }
  }

  const std::unique_ptr<httplib::Server> server_;
  const std::string scheme_;
  const Handler handler_;
  int port_ = 0;
  mutable std::mutex mutex_;
  mutable std::condition_variable arrived_;
  std::vector<Request> requests_;
  std::thread thread_;
};

}  // namespace QVTest
