#include "tests/support/Exchange.h"
#include "tests/support/HTTPServer.h"
#include "tests/support/RawServer.h"
#include "tests/support/Test.h"

using Connection = RawServer::Connection;

namespace {

constexpr double kTimeout = 0.2;

std::chrono::duration<double> timeOf(const std::function<void()>& action) {
  const auto start = std::chrono::steady_clock::now();
  action();
  return std::chrono::steady_clock::now() - start;
}

/// A server's misbehaviour, and what is to come of it.
struct Failure {
  const char* name;
  RawServer::Script script;
  URLErrorCode code;
  int status;  // of the response that is handed back; 0: none
};

void PrintTo(const Failure& failure, std::ostream* out) { *out << failure.name; }

/// Reads the request and answers with these bytes; then closes, or waits for the client to do so.
RawServer::Script sends(std::string bytes) {
  return [bytes](Connection& connection) {
    connection.readRequest();
    connection.send(bytes);
  };
}
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
RawServer::Script redirects(std::string place) {
  return sends("HTTP/1.1 302 Found\r\nLocation: " + place + "\r\nConnection: close\r\n\r\n");
}

class BrokenTransfer : public testing::TestWithParam<Failure> {};

TEST_P(BrokenTransfer, FailsWithoutBodyAndLeavesTheNextOneAlone) {
  const Failure& failure = GetParam();
  RawServer broken(failure.script);
  HTTPServer sound;
  URLConnection::setMaximumResponseSize(1 << 20);
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

const std::string kOK = "HTTP/1.1 200 OK\r\n";

/// An answer that is whole, with these last bytes of "whole" compressed missing.
std::string gzipWithout(std::size_t missing) {
  constexpr std::string_view kWhole(
      "\x1f\x8b\x08\x00\x00\x00\x00\x00\x02\x03\x2b\xcf\xc8\xcf\x49\x05\x00\x4f\x29\x59\xc4\x05\x00"
      "\x00\x00",
      25);
  const std::size_t size = kWhole.size() - missing;
  return kOK + "Content-Encoding: gzip\r\nContent-Length: " + std::to_string(size) + "\r\n\r\n" +
         std::string(kWhole.substr(0, size));
}

const Failure kFailures[] = {
    {"closesAtOnce", [](Connection&) {}, URLErrorCode::connectionLost, 0},
    {"resets",
     [](Connection& connection) {
       connection.readRequest();
       connection.reset();
     },
     URLErrorCode::connectionLost, 0},
    {"closesWithinHeader", sends(kOK + "Content-Le"), URLErrorCode::connectionLost, 0},
    {"hangsBeforeHeader", sendsAndHangs(""), URLErrorCode::timedOut, 0},
    {"hangsWithinHeader", sendsAndHangs(kOK + "X-Field: "), URLErrorCode::timedOut, 0},
    {"hangsAfterHeader", sendsAndHangs(kOK + "Content-Length: 5\r\n\r\n"), URLErrorCode::timedOut,
     200},
    {"hangsWithinBody", sendsAndHangs(kOK + "Content-Length: 5\r\n\r\nab"), URLErrorCode::timedOut,
     200},
    {"truncatesBody", sends(kOK + "Content-Length: 5\r\n\r\nab"), URLErrorCode::connectionLost,
     200},
    {"truncatesErrorBody", sends("HTTP/1.1 500 No\r\nContent-Length: 5\r\n\r\nab"),
     URLErrorCode::connectionLost, 500},
    {"truncatesChunks", sends(kOK + "Transfer-Encoding: chunked\r\n\r\n5\r\nab"),
     URLErrorCode::connectionLost, 200},
    {"breaksChunks", sends(kOK + "Transfer-Encoding: chunked\r\n\r\nzz\r\nab\r\n"),
     URLErrorCode::connectionLost, 200},
    {"isNoHTTP", sends("220 mail.example ready\r\n\r\n"), URLErrorCode::badServerResponse, 0},
    {"breaksGzip", sends(kOK + "Content-Encoding: gzip\r\nContent-Length: 8\r\n\r\nnot gzip"),
     URLErrorCode::badServerResponse, 200},
    {"cutsGzipShort", sends(gzipWithout(9)), URLErrorCode::badServerResponse, 200},
    {"cutsChecksum", sends(gzipWithout(1)), URLErrorCode::badServerResponse, 200},
    {"namesTwoLengths", sends(kOK + "Content-Length: 2\r\ncontent-length: 3\r\n\r\nab"),
     URLErrorCode::badServerResponse, 0},
    {"namesNoNumber", sends(kOK + "Content-Length: 99999999999999999999\r\n\r\nab"),
     URLErrorCode::badServerResponse, 0},
    {"listsTwoLengths", sends(kOK + "Content-Length: 2, 3\r\n\r\nab"),
     URLErrorCode::badServerResponse, 0},
    {"sendsEndlessBody", sendsForever(kOK + "\r\n", std::string(65536, 'x')),
     URLErrorCode::responseTooLarge, 200},
    {"sendsEndlessField", sendsForever(kOK + "X: ", std::string(65536, 'x')),
     URLErrorCode::responseTooLarge, 0},
    {"sendsEndlessFields", sendsForever(kOK, "X: " + std::string(1000, 'x') + "\r\n"),
     URLErrorCode::responseTooLarge, 0},
    {"sendsEndlessInterimAnswers", sendsForever("", "HTTP/1.1 103 Early Hints\r\n\r\n"),
     URLErrorCode::responseTooLarge, 0},
    {"redirectsInACircle", redirects("/again"), URLErrorCode::tooManyRedirects, 0},
    {"redirectsToFile", redirects("file:///etc/hostname"), URLErrorCode::unsupportedURL, 0},
    {"redirectsToFTP", redirects("ftp://127.0.0.1:1/"), URLErrorCode::unsupportedURL, 0},
    {"redirectsToNowhere", redirects("http://127.0.0.1:1/"), URLErrorCode::cannotConnect, 0},
};

INSTANTIATE_TEST_SUITE_P(URLConnection, BrokenTransfer, testing::ValuesIn(kFailures),
                         [](const auto& instance) { return std::string(instance.param.name); });

TEST(URLConnection, RefusesWhatItCannotSend) {
  RawServer server([](Connection&) { ADD_FAILURE() << "connected"; });
  const std::string authority = "//127.0.0.1:" + std::to_string(server.port()) + "/";
  for (const std::string& url :
       {"ftp:" + authority, authority, std::string("file:///etc/hostname"), std::string("page"),
        std::string("http:///path"), std::string("http://:80/"), std::string(),
        std::string("http://127.0.0.1:99999/"), std::string("http://127.0.0.1:80x/")}) {
    const Exchange exchange = get(url);
    EXPECT_TRUE(exchange.body.isNull()) << url;
    EXPECT_EQ(exchange.response, nullptr) << url;
    EXPECT_EQ(exchange.code(), URLErrorCode::unsupportedURL) << url;
  }
}

TEST(URLConnection, FailsAtOnceWhereNobodyListens) {
  EXPECT_EQ(get("http://127.0.0.1:1/").code(), URLErrorCode::cannotConnect);
  EXPECT_EQ(get("http://[::1]:1/").code(), URLErrorCode::cannotConnect);
}

TEST(URLConnection, ClearsWhatTheLastTransferLeftInTheOutcome) {
  HTTPServer server;
  Exchange exchange = get(server.url());
  const auto send = [&](const std::string& url) {
    exchange.body =
        URLConnection::sendSynchronousRequest(requestTo(url), exchange.response, exchange.error);
  };
  send("http://127.0.0.1:1/");
  EXPECT_EQ(exchange.response, nullptr);
  send(server.url());
  EXPECT_EQ(exchange.error, nullptr);
}

TEST(URLConnection, BoundsTheBodyAfterDecompression) {
  HTTPServer server([](const auto& request, auto& response) {
    response.set_content(std::string(std::stoul(request.path.substr(1)), 'a'), "text/plain");
  });
  EXPECT_EQ(URLConnection::maximumResponseSize(), 64U << 20);
  URLConnection::setMaximumResponseSize(100'000);
  EXPECT_EQ(get(server.url("/100000")).body.view().size(), 100'000U);
  for (const char* size : {"/100001", "/1000000"}) {
    const Exchange exchange = get(server.url(size));
    EXPECT_TRUE(exchange.body.isNull());
    EXPECT_EQ(exchange.code(), URLErrorCode::responseTooLarge);
    ASSERT_NE(exchange.response, nullptr);
    EXPECT_FALSE(exchange.response->valueForHTTPHeaderField("Content-Encoding").isNull());
  }
}

TEST(URLConnection, TimesOutWhenTheServerTakesNoMoreOfTheBody) {
  RawServer server([](Connection& connection) { connection.waitForClose(); });
  MutableURLRequest request = requestTo(server.url(), kTimeout);
  request.setHTTPMethod("POST");
  request.setHTTPBody(Data(std::string(64 << 20, 'x')));
  EXPECT_EQ(send(request).code(), URLErrorCode::timedOut);
}

TEST(URLConnection, TimesOutNeitherTooEarlyNorMuchTooLate) {
  RawServer server(sendsAndHangs(""));
  const auto time = timeOf([&] { get(server.url(), 0.5); });
  EXPECT_GE(time.count(), 0.5);
  EXPECT_LT(time.count(), 2.0);
}

/// A body of six bytes, one every tenth of a second, is slower as a whole than the timeout.
TEST(URLConnection, WaitsForAServerThatKeepsOnSending) {
  RawServer server([](Connection& connection) {
    connection.readRequest();
    for (const char byte : kOK + "Content-Length: 6\r\n\r\n") connection.send({&byte, 1});
    for (const char byte : std::string("abcdef")) {
      connection.waitForClose(100ms);
      connection.send({&byte, 1});
    }
  });
  Exchange exchange;
  const auto time = timeOf([&] { exchange = get(server.url(), 0.4); });
  EXPECT_EQ(exchange.body, Data("abcdef"));
  EXPECT_GT(time.count(), 0.4);
}

TEST(URLConnection, GivesUpOnAServerThatKeepsOnSendingForTooLong) {
  RawServer server([](Connection& connection) {
    connection.readRequest();
    connection.send(kOK + "\r\n");
    while (!connection.waitForClose(20ms)) connection.send("x");
  });
  URLConnection::setMaximumTransferTime(0.3);
  Exchange exchange;
  const auto time = timeOf([&] { exchange = get(server.url(), 5); });
  EXPECT_EQ(exchange.code(), URLErrorCode::timedOut);
  EXPECT_EQ(exchange.status(), 200);
  EXPECT_GE(time.count(), 0.3);
  EXPECT_LT(time.count(), 2.0);
}

}  // namespace
