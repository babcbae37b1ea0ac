#include "inspector/HTTPServer.h"

#include <arpa/inet.h>
#include <microhttpd.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>

namespace {

constexpr std::size_t kMostOfHead = std::size_t{1} << 20;  // bytes of a URL and all headers
constexpr std::size_t kBlockSize = 1U << 16;
constexpr unsigned kMostConnections = 1000;
// Of a connection that has no request. The library does not notice a client that is done with
// sending while it sends, so without a limit such connections would stay.
constexpr unsigned kIdleSeconds = 120;

/// Null when the address is no number.
std::vector<char> socketAddress(const HTTPServer::Place& place) {
  sockaddr_in four{};
  sockaddr_in6 six{};
  four.sin_family = AF_INET;
  six.sin6_family = AF_INET6;
  four.sin_port = six.sin6_port = htons(place.port);
  const auto bytesOf = [](const auto& address) {
    const auto* const bytes = reinterpret_cast<const char*>(&address);
    return std::vector<char>(bytes, bytes + sizeof address);
  };
  if (inet_pton(AF_INET, place.address.c_str(), &four.sin_addr) == 1) return bytesOf(four);
  if (inet_pton(AF_INET6, place.address.c_str(), &six.sin6_addr) == 1) return bytesOf(six);
  return {};
}

MHD_Result addHeader(void* headers, MHD_ValueKind, const char* name, const char* value) {
  static_cast<Headers*>(headers)->emplace_back(name, value == nullptr ? "" : value);
  return MHD_YES;
}

/// What the reader of an answer's body hands out: half of it, then the end of the connection.
ssize_t readHalf(void* context, std::uint64_t position, char* buffer, std::size_t room) {
  const std::string& body = *static_cast<const std::string*>(context);
  const std::size_t half = body.size() / 2;
  if (position >= half) return MHD_CONTENT_READER_END_WITH_ERROR;
  const std::size_t size = std::min<std::size_t>(room, half - position);
  std::copy_n(body.data() + position, size, buffer);
  return static_cast<ssize_t>(size);
}

}  // namespace

/// What the HTTP library calls.
struct HTTPServer::Callbacks {
  /// The first that is heard of a request. The exchange becomes the context of the calls below.
  static void* begin(void*, const char* target, MHD_Connection* connection) {
    auto* const exchange = new HTTPExchange;
    exchange->connection_ = connection;
    exchange->request_.target = target;
    return exchange;
  }

  /// Called when the head is there, then for each part of the body, then at its end and whenever
  /// the connection was resumed.
  static MHD_Result access(void* context, MHD_Connection*, const char*, const char* method,
                           const char* version, const char* part, std::size_t* size,
                           void** request) {
    auto& server = *static_cast<HTTPServer*>(context);
    auto& exchange = *static_cast<HTTPExchange*>(*request);
    if (!std::exchange(exchange.isBegun_, true)) {
      exchange.request_.method = method;
      exchange.request_.version = version;
      MHD_get_connection_values(exchange.connection_, MHD_HEADER_KIND, addHeader,
                                &exchange.request_.headers);
      return MHD_YES;
    }
    if (*size > 0) {
      auto& body = exchange.request_.body;
      body.append(part, std::min(*size, server.keptOfBody_ - body.size()));
      exchange.request_.bodySize += std::exchange(*size, 0);
      return MHD_YES;
    }
    return server.handle(exchange) ? MHD_YES : MHD_NO;
  }

  static void end(void* context, MHD_Connection*, void** request,
                  MHD_RequestTerminationCode reason) {
    auto& server = *static_cast<HTTPServer*>(context);
    const std::unique_ptr<HTTPExchange> exchange(static_cast<HTTPExchange*>(*request));
    if (!exchange) return;
    server.held_.erase(exchange.get());
    if (exchange->isHandled_) {
      server.handler_.onEnd(*exchange, reason == MHD_REQUEST_TERMINATED_COMPLETED_OK);
    } else {
      const auto* const info =
          MHD_get_connection_info(exchange->connection_, MHD_CONNECTION_INFO_HTTP_STATUS);
      server.handler_.onBroken(exchange->request_,
                               info == nullptr ? 0 : static_cast<int>(info->http_status));
    }
  }

  static ssize_t readStream(void* context, std::uint64_t, char* buffer, std::size_t room) {
    auto& [server, exchange] = *static_cast<std::pair<HTTPServer*, HTTPExchange*>*>(context);
    auto& stream = *exchange->reply_.stream;
    auto& pending = exchange->pending_;
    if (exchange->decision_ == HTTPExchange::Decision::kCut) {
      return MHD_CONTENT_READER_END_WITH_ERROR;
    }
    if (pending.empty()) pending = stream.next();
    if (pending.empty() && stream.isAtEnd()) return MHD_CONTENT_READER_END_OF_STREAM;
    if (pending.empty()) {
      server->hold(*exchange);
      return 0;
    }
    const std::size_t size = std::min(room, pending.size());
    std::copy_n(pending.data(), size, buffer);
    pending.erase(0, size);
    return static_cast<ssize_t>(size);
  }

  static void endStream(void* context) {
    delete static_cast<std::pair<HTTPServer*, HTTPExchange*>*>(context);
  }
};

void HTTPExchange::answer(HTTPReply reply) {
  reply_ = std::move(reply);
  decision_ = Decision::kAnswer;
  resume();
}

void HTTPExchange::cut() {
  decision_ = Decision::kCut;
  resume();
}

void HTTPExchange::wake() { resume(); }

void HTTPExchange::resume() {
  if (std::exchange(isHeld_, false)) MHD_resume_connection(connection_);
}

HTTPServer::HTTPServer(const Place& place, std::size_t keptOfBody, HTTPHandler& handler)
    : keptOfBody_(keptOfBody), handler_(handler) {
  const auto address = socketAddress(place);
  if (address.empty()) {
    error_ = EINVAL;
    return;
  }
  const bool isSix = address.size() == sizeof(sockaddr_in6);
  errno = 0;
  daemon_ = MHD_start_daemon(
      MHD_USE_EPOLL | MHD_ALLOW_SUSPEND_RESUME | (isSix ? MHD_USE_IPv6 : MHD_NO_FLAG), 0, nullptr,
      nullptr, &Callbacks::access, this, MHD_OPTION_SOCK_ADDR, address.data(),
      MHD_OPTION_URI_LOG_CALLBACK, &Callbacks::begin, this, MHD_OPTION_NOTIFY_COMPLETED,
      &Callbacks::end, this, MHD_OPTION_CONNECTION_MEMORY_LIMIT, kMostOfHead,
      MHD_OPTION_CONNECTION_LIMIT, kMostConnections, MHD_OPTION_CONNECTION_TIMEOUT, kIdleSeconds,
      MHD_OPTION_END);
  if (daemon_ == nullptr) error_ = errno != 0 ? errno : EADDRINUSE;
}

HTTPServer::~HTTPServer() {
  if (daemon_ == nullptr) return;
  for (auto* const exchange : held_) exchange->cut();
  MHD_run(daemon_);
  MHD_stop_daemon(daemon_);
}

std::uint16_t HTTPServer::port() const {
  return MHD_get_daemon_info(daemon_, MHD_DAEMON_INFO_BIND_PORT)->port;
}

int HTTPServer::watch(std::vector<pollfd>& files) {
  firstFile_ = files.size();
  files.push_back({MHD_get_daemon_info(daemon_, MHD_DAEMON_INFO_EPOLL_FD)->epoll_fd, POLLIN, 0});
  watched_.clear();
  std::erase_if(held_, [](const HTTPExchange* each) { return !each->isHeld_; });
  for (auto* const exchange : held_) {
    watched_.push_back(exchange);
    const auto* const info =
        MHD_get_connection_info(exchange->connection_, MHD_CONNECTION_INFO_CONNECTION_FD);
    files.push_back({info->connect_fd, POLLRDHUP, 0});
  }
  MHD_UNSIGNED_LONG_LONG timeout = 0;
  if (MHD_get_timeout(daemon_, &timeout) != MHD_YES) return -1;
  return static_cast<int>(std::min<MHD_UNSIGNED_LONG_LONG>(timeout, 60'000));
}

void HTTPServer::run(const std::vector<pollfd>& files) {
  for (std::size_t i = 0; i < watched_.size(); ++i) {
    if (files[firstFile_ + 1 + i].revents != 0) watched_[i]->cut();
  }
  watched_.clear();
  MHD_run(daemon_);
}

void HTTPServer::hold(HTTPExchange& exchange) {
  MHD_suspend_connection(exchange.connection_);
  exchange.isHeld_ = true;
  held_.insert(&exchange);
}

bool HTTPServer::handle(HTTPExchange& exchange) {
  if (!std::exchange(exchange.isHandled_, true)) handler_.onRequest(exchange);
  switch (exchange.decision_) {
    case HTTPExchange::Decision::kAnswer:
      return send(exchange);
    case HTTPExchange::Decision::kCut:
      return false;
    case HTTPExchange::Decision::kNone:
      hold(exchange);
  }
  return true;
}

bool HTTPServer::send(HTTPExchange& exchange) {
  auto& reply = exchange.reply_;
  MHD_Response* response = nullptr;
  if (reply.stream) {
    response =
        MHD_create_response_from_callback(MHD_SIZE_UNKNOWN, kBlockSize, &Callbacks::readStream,
                                          new std::pair(this, &exchange), &Callbacks::endStream);
  } else if (reply.isCutShort) {
    response = MHD_create_response_from_callback(std::max<std::size_t>(reply.body.size(), 1),
                                                 kBlockSize, readHalf, &reply.body, nullptr);
  } else {
    response = MHD_create_response_from_buffer(reply.body.size(), reply.body.data(),
                                               MHD_RESPMEM_PERSISTENT);
  }
  for (const auto& [name, value] : reply.headers) {
    MHD_add_response_header(response, name.c_str(), value.c_str());
  }
  const auto result =
      MHD_queue_response(exchange.connection_, static_cast<unsigned>(reply.status), response);
  MHD_destroy_response(response);
  return result == MHD_YES;
}
