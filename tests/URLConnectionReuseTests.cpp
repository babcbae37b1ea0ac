#include <openssl/ssl.h>

#include "tests/support/Certificate.h"
#include "tests/support/Exchange.h"
#include "tests/support/HTTPServer.h"
#include "tests/support/RawServer.h"
#include "tests/support/Test.h"

using Connection = RawServer::Connection;

namespace {

std::string targetOf(const std::string& request) {
  const std::size_t begin = request.find(' ') + 1;
  return request.substr(begin, request.find(' ', begin) - begin);
}

std::string answer(const std::string& body) {
  return "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
}

/// Answers every request with its target, and does `then` after the first one of all.
class EchoServer {
 public:
  explicit EchoServer(std::function<void(Connection&)> then, std::string first = "")
      : server_([this, then = std::move(then), first](Connection& connection) {
          ++connections_;
          for (std::string request; !(request = connection.readRequest()).empty();) {
            const std::string target = targetOf(request);
            const bool isFirst = ++requests_[target == "/1" ? 0 : 1] == 1 && target == "/1";
            connection.send(isFirst && !first.empty() ? first : answer(target));
            if (!isFirst) continue;
            then(connection);
            done_.release();
          }
        }) {}

  std::string url(const std::string& target) const { return server_.url(target); }
  void waitUntilDone() { done_.acquire(); }
  int countOfSecond() const { return requests_[1]; }
  int connections() const { return connections_; }

 private:
  std::atomic<int> requests_[2]{};
  std::atomic<int> connections_{0};
  std::binary_semaphore done_{0};
  RawServer server_;
};

/// What comes unasked on a kept connection must not answer the next request.
TEST(URLConnectionReuse, PassesOverConnectionsOnWhichSomethingCameUnasked) {
  const std::string timedOut = "HTTP/1.1 408 Request Timeout\r\nContent-Length: 0\r\n\r\n";
  const std::string noContent = "HTTP/1.1 204 No Content\r\n\r\n";
  const std::string notModified = "HTTP/1.1 304 Not Modified\r\n\r\n";
  // What comes in one piece with the first answer or in its place, and what then; "-" for the end.
  const std::tuple<const char*, std::string, std::string> cases[] = {
      {"408", "", timedOut},
      {"408AndEnd", "", timedOut + "-"},
      {"secondAnswer", "", answer("late")},
      {"secondAnswerAtOnce", answer("/1") + answer("late"), ""},
      {"partOfAnswerAtOnce", answer("/1") + "HTTP/1.1 200 OK\r\n", "X: y\r\n\r\nlate"},
      {"lineBreak", "", "\r\n"},
      {"end", "", "-"},
      {"bodyOf204", noContent, "late"},
      {"bodyOf204AtOnce", noContent + "late", ""},
      {"bodyOf304", notModified, answer("late")},
      {"bodyOf304AtOnce", notModified + answer("late"), ""},
      {"tooLongBody", answer("/1") + "more", ""}};
  for (const auto& [name, first, rest] : cases) {
    const bool isEnd = rest.ends_with('-');
    EchoServer server(
        [&rest = rest, isEnd](Connection& connection) {
          connection.send(isEnd ? rest.substr(0, rest.size() - 1) : rest);
          if (isEnd) connection.finish();
        },
        first);
    get(server.url("/1"));
    server.waitUntilDone();
    for (int i = 0; i < 2; ++i) {
      const Exchange second = send(requestWith("POST", server.url("/2")));
      EXPECT_EQ(second.body, Data("/2")) << name;
      EXPECT_EQ(second.status(), 200) << name;
    }
    EXPECT_EQ(server.countOfSecond(), 2) << name;
    EXPECT_EQ(server.connections(), 2) << name;
  }
}

/// A kept connection that breaks under a request.
TEST(URLConnectionReuse, SendsNothingTwiceButAGetOfWhichNothingWasAnswered) {
  // Of the answer its beginning, before the connection breaks; how many connections do.
  const std::tuple<const char*, Data, const char*, int, int, bool> cases[] = {
      {"GET", nullptr, "", 1, 2, true},
      {"HEAD", nullptr, "", 1, 2, true},
      {"GET", nullptr, "", 2, 2, false},
      {"GET", nullptr, "H", 1, 1, false},
      {"GET", nullptr, "HTTP/1.1 2", 1, 1, false},
      {"GET", nullptr, "HTTP/1.1 200 OK\r\nX: y\r\n", 1, 1, false},
      {"GET", Data("body"), "", 1, 1, false},
      {"POST", Data("body"), "", 1, 1, false},
      {"POST", nullptr, "", 1, 1, false},
      {"PUT", Data("body"), "", 1, 1, false},
      {"DELETE", nullptr, "", 1, 1, false}};
  for (const auto& [method, body, begin, breaks, requests, succeeds] : cases) {
    for (const bool isReset : {false, true}) {
      std::atomic<int> left{0};
      std::atomic<int> seen{0};
      RawServer server([&, &begin = begin](Connection& connection) {
        for (std::string request; !(request = connection.readRequest()).empty();) {
          if (targetOf(request) == "/warm") {
            connection.send(answer("ok"));
            continue;
          }
          ++seen;
          if (left-- <= 0) {
            connection.send(request.starts_with("HEAD") ? "HTTP/1.1 200 OK\r\n\r\n" : answer("ok"));
            continue;
          }
          connection.send(begin);
          if (isReset) connection.reset();
          return;
        }
      });
      // More often than libcurl lets a transfer find its connection dead.
      for (int round = 0; round < 8; ++round) {
        EXPECT_EQ(get(server.url("/warm")).body, Data("ok"));
        left = breaks;
        seen = 0;
        const Exchange exchange = send(requestWith(method, server.url("/hit"), body));
        EXPECT_EQ(exchange.body.isNull(), !succeeds) << method << ' ' << begin << isReset;
        EXPECT_EQ(seen, requests) << method << ' ' << begin << isReset;
        EXPECT_EQ(exchange.code(), succeeds ? URLErrorCode{} : URLErrorCode::kConnectionLost);
      }
    }
  }
}

TEST(URLConnectionReuse, ParentAndChildOfAForkShareNoConnection) {
  if (!kChildrenMayGoOn) GTEST_SKIP() << "no child may go on under a sanitizer";
  HTTPServer server;
  EXPECT_EQ(get(server.url("/parent")).body, Data("ok"));
  EXPECT_EQ(runInChild([&] { return get(server.url("/child")).body == Data("ok") ? 0 : 1; }), 0);
  EXPECT_EQ(get(server.url("/parent")).body, Data("ok"));
  std::map<std::string, std::set<int>> ports;
  for (const auto& request : server.requests()) ports[request.target].insert(request.clientPort);
  EXPECT_EQ(ports["/parent"].size(), 1U);
  ASSERT_EQ(ports["/child"].size(), 1U);
  EXPECT_FALSE(ports["/parent"].contains(*ports["/child"].begin()));
}

/// Without a length the end of the connection ends the answer, which over TLS anybody on the way
/// can bring about.
TEST(URLConnectionReuse, TakesAnAnswerOverTLSForWholeOnlyIfTheServerEndedIt) {
  const Certificate certificate;
  ASSERT_EQ(setenv("SSL_CERT_FILE", certificate.file().c_str(), 1), 0);
  const std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)> context(SSL_CTX_new(TLS_server_method()),
                                                                  &SSL_CTX_free);
  SSL_CTX_use_certificate_file(context.get(), certificate.file().c_str(), SSL_FILETYPE_PEM);
  SSL_CTX_use_PrivateKey_file(context.get(), certificate.keyFile().c_str(), SSL_FILETYPE_PEM);
  const std::tuple<const char*, bool, URLErrorCode> cases[] = {
      {"", true, {}},
      {"", false, URLErrorCode::kConnectionLost},
      {"Transfer-Encoding: identity\r\n", false, URLErrorCode::kConnectionLost},
      {"Content-Length: 4\r\n", false, {}}};
  for (const auto& [field, isEnded, code] : cases) {
    RawServer server([&, &field = field, &isEnded = isEnded](Connection& connection) {
      const std::unique_ptr<SSL, decltype(&SSL_free)> tls(SSL_new(context.get()), &SSL_free);
      SSL_set_fd(tls.get(), connection.file());
      char request[4096];
      if (SSL_accept(tls.get()) != 1 || SSL_read(tls.get(), request, sizeof request) <= 0) return;
      const std::string text = std::string("HTTP/1.1 200 OK\r\n") + field + "\r\nbody";
      SSL_write(tls.get(), text.data(), static_cast<int>(text.size()));
      if (isEnded) SSL_shutdown(tls.get());
    });
    const Exchange exchange = get("https://127.0.0.1:" + std::to_string(server.port()) + "/");
    EXPECT_EQ(exchange.body, code == URLErrorCode{} ? Data("body") : Data()) << field;
    EXPECT_EQ(exchange.code(), code) << field;
  }
}

}  // namespace
