#include <dlfcn.h>
#include <netdb.h>

#include "tests/support/Exchange.h"
#include "tests/support/HTTPServer.h"
#include "tests/support/RawServer.h"
#include "tests/support/Test.h"

using Connection = RawServer::Connection;

namespace {

std::binary_semaphore hangingLookUps{0};
std::binary_semaphore endedLookUps{0};

}  // namespace

/// Stands in front of the system's own, so that names resolve as the tests need them without a name
/// server.
extern "C" __attribute__((visibility("default"))) int getaddrinfo(const char* name,
                                                                  const char* service,
                                                                  const addrinfo* hints,
                                                                  addrinfo** result) {
  if (name && std::strcmp(name, "missing.example") == 0) return EAI_NONAME;
  if (name && std::strcmp(name, "hanging.example") == 0) {
    hangingLookUps.acquire();
    endedLookUps.release();
    return EAI_AGAIN;
  }
  static const auto real =
      reinterpret_cast<decltype(&getaddrinfo)>(dlsym(RTLD_NEXT, "getaddrinfo"));
  return real(name, service, hints, result);
}

namespace {

constexpr double kTimeout = 0.2;

/// A server's misbehaviour, and what is to come of it.
struct Failure {
  const char* name;
  RawServer::Script script;
  URLErrorCode code;
  int status;  // of the response that is handed back; 0: none
};

constexpr auto sends = &RawServer::sends;

/// Waits for the client to close.
RawServer::Script sendsAndHangs(std::string bytes) {
  return [bytes](Connection& connection) {
    connection.readRequest();
    connection.send(bytes);
    connection.waitForClose();
  };
}
RawServer::Script sendsForever(std::string start, std::string rest) {
  return [start, rest](Connection& connection) {
    connection.readRequest();
    connection.send(start);
    while (connection.send(rest)) {
    }
  };
}
RawServer::Script redirects(std::string place, std::string rest = "Connection: close\r\n\r\n") {
  return sends("HTTP/1.1 302 Found\r\nLocation: " + place + "\r\n" + rest);
}

const std::string kOK = "HTTP/1.1 200 OK\r\n";

const Failure kFailures[] = {
    {"closesAtOnce", [](Connection&) {}, URLErrorCode::kConnectionLost, 0},
    {"resets",
     [](Connection& connection) {
       connection.readRequest();
       connection.reset();
     },
     URLErrorCode::kConnectionLost, 0},
    {"closesWithinHeader", sends(kOK + "Content-Le"), URLErrorCode::kConnectionLost, 0},
    {"hangsBeforeHeader", sendsAndHangs(""), URLErrorCode::kTimedOut, 0},
    {"hangsWithinBody", sendsAndHangs(kOK + "Content-Length: 5\r\n\r\nab"), URLErrorCode::kTimedOut,
     200},
    {"truncatesBody", sends(kOK + "Content-Length: 5\r\n\r\nab"), URLErrorCode::kConnectionLost,
     200},
    {"goesOnWithNoLine", sends(kOK + " and on\r\nX: a\r\n\r\n"), URLErrorCode::kBadServerResponse,
     0},
    {"isNoHTTP", sends("220 mail.example ready\r\n\r\n"), URLErrorCode::kBadServerResponse, 0},
    {"namesTwoLengths", sends(kOK + "Content-Length: 2\r\ncontent-length: 3\r\n\r\nab"),
     URLErrorCode::kBadServerResponse, 0},
    {"namesNoNumber", sends(kOK + "Content-Length: 99999999999999999999\r\n\r\nab"),
     URLErrorCode::kBadServerResponse, 0},
    {"listsTwoLengths", sends(kOK + "Content-Length: 2, 3\r\n\r\nab"),
     URLErrorCode::kBadServerResponse, 0},
    {"sendsEndlessBody", sendsForever(kOK + "\r\n", std::string(65536, 'x')),
     URLErrorCode::kResponseTooLarge, 200},
    {"sendsEndlessField", sendsForever(kOK + "X: ", std::string(65536, 'x')),
     URLErrorCode::kResponseTooLarge, 0},
    {"sendsEndlessFields", sendsForever(kOK, "X: " + std::string(1000, 'x') + "\r\n"),
     URLErrorCode::kResponseTooLarge, 0},
    {"sendsEndlessInterimAnswers", sendsForever("", "HTTP/1.1 103 Early Hints\r\n\r\n"),
     URLErrorCode::kResponseTooLarge, 0},
    {"redirectsInACircle", redirects("/again"), URLErrorCode::kTooManyRedirects, 0},
    {"redirectsToFile", redirects("file:///etc/hostname"), URLErrorCode::kUnsupportedURL, 0},
    {"redirectsToFTP", redirects("ftp://127.0.0.1/"), URLErrorCode::kUnsupportedURL, 0},
    {"breaksWithinARedirection", redirects("/", "Content-Length: 5\r\n\r\nab"),
     URLErrorCode::kConnectionLost, 0},
    {"redirectsToNowhere", redirects("http://127.0.0.1:1/"), URLErrorCode::kCannotConnect, 0},
};

TEST(URLConnection, FailsWithoutBodyAndLeavesTheNextTransferAlone) {
  HTTPServer sound;
  URLConnection::setMaximumResponseSize(1 << 20);
  for (const Failure& failure : kFailures) {
    SCOPED_TRACE(failure.name);
    RawServer broken(failure.script);
    for (int round = 0; round < 2; ++round) {
      const Exchange exchange = get(broken.url(), kTimeout);
      EXPECT_TRUE(exchange.body.isNull());
      ASSERT_NE(exchange.error, nullptr);
      EXPECT_EQ(exchange.code(), failure.code) << exchange.error->description().view();
      EXPECT_EQ(exchange.error->domain(), kURLErrorDomain);
      EXPECT_FALSE(exchange.error->localizedDescription().isEmpty());
      EXPECT_EQ(exchange.status(), failure.status);
      EXPECT_EQ(get(sound.url()).body, Data("ok"));
    }
  }
}

TEST(URLConnection, RefusesWhatItCannotSend) {
  RawServer server([](Connection&) { ADD_FAILURE() << "connected"; });
  const std::string authority = "//127.0.0.1:" + std::to_string(server.port()) + "/";
  for (const std::string& url : {"ftp:" + authority, authority, "page"s, "http:///path"s,
                                 "http://:80/"s, ""s, "http://127.0.0.1:99999/"s}) {
    const Exchange exchange = get(url);
    EXPECT_TRUE(exchange.body.isNull()) << url;
    EXPECT_EQ(exchange.response, nullptr) << url;
    EXPECT_EQ(exchange.code(), URLErrorCode::kUnsupportedURL) << url;
  }
  const auto url = URL::URLWithString("http:" + authority);
  const Exchange cached = send({url, URLRequestCachePolicy::kReturnCacheDataDontLoad, 10});
  EXPECT_TRUE(cached.body.isNull());
  EXPECT_EQ(cached.code(), URLErrorCode::kNotCached);
}

TEST(URLConnection, ClearsWhatTheLastTransferLeftInTheOutcome) {
  HTTPServer server;
  Exchange exchange = get(server.url());
  const auto send = [&](const std::string& url) {
    exchange.body =
        URLConnection::sendSynchronousRequest(requestTo(url), exchange.response, exchange.error);
  };
  send("http://127.0.0.1:1/");  // where nobody listens
  EXPECT_EQ(exchange.code(), URLErrorCode::kCannotConnect);
  EXPECT_EQ(exchange.response, nullptr);
  send(server.url());
  EXPECT_EQ(exchange.error, nullptr);
}

TEST(URLConnection, TimesOutWhenTheServerTakesNoMoreOfTheBody) {
  RawServer server([](Connection& connection) { connection.waitForClose(); });
  MutableURLRequest request = requestTo(server.url(), kTimeout);
  request.setHTTPMethod("POST");
  request.setHTTPBody(Data(std::string(64 << 20, 'x')));
  EXPECT_EQ(send(request).code(), URLErrorCode::kTimedOut);
}

/// A timeout is for a server that says nothing, and the limit for one that says little too long.
TEST(URLConnection, TimesOutNeitherTooEarlyNorMuchTooLate) {
  const auto sendsSlowly = [](std::string body, std::chrono::milliseconds pause) {
    return [body, pause](Connection& connection) {
      connection.readRequest();
      for (const char byte : kOK + "Content-Length: 6\r\n\r\n") connection.send({&byte, 1});
      for (const char byte : body) {
        if (connection.waitForClose(pause)) return;
        connection.send({&byte, 1});
      }
    };
  };
  const std::tuple<RawServer::Script, double, double, double, URLErrorCode> cases[] = {
      {sendsAndHangs(""), 0.5, 600, 0.5, URLErrorCode::kTimedOut},
      {sendsSlowly("abcdef", 100ms), 0.4, 600, 0.6, {}},
      {sendsSlowly("abcdef", 100ms), 5, 0.3, 0.3, URLErrorCode::kTimedOut}};
  for (const auto& [script, timeout, limit, least, code] : cases) {
    RawServer server(script);
    URLConnection::setMaximumTransferTime(limit);
    const auto start = std::chrono::steady_clock::now();
    const Exchange exchange = get(server.url(), timeout);
    const std::chrono::duration<double> time = std::chrono::steady_clock::now() - start;
    EXPECT_EQ(exchange.code(), code) << least;
    EXPECT_EQ(exchange.body, code == URLErrorCode{} ? Data("abcdef") : Data()) << least;
    EXPECT_GE(time.count(), least);
    EXPECT_LT(time.count(), least + 2);
  }
}

TEST(URLConnection, FailsForAHostThatDoesNotExistAndWaitsForNoResolver) {
  EXPECT_EQ(get("http://missing.example/").code(), URLErrorCode::kCannotFindHost);
  const auto start = std::chrono::steady_clock::now();
  const Exchange exchange = get("http://hanging.example/", 0.2);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
  EXPECT_EQ(exchange.code(), URLErrorCode::kTimedOut);
  HTTPServer server;
  EXPECT_EQ(get(server.url()).body, Data("ok"));
  hangingLookUps.release();
  EXPECT_TRUE(endedLookUps.try_acquire_for(std::chrono::seconds(10)));
}

}  // namespace
