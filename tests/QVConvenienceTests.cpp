#include <QVConvenience/QVConvenience.h>

#include "tests/support/HTTPServer.h"
#include "tests/support/NetworkManagerTest.h"
#include "tests/support/Test.h"

namespace {

using QVConvenienceTest = NetworkManagerTest;

TEST_F(QVConvenienceTest, ObservesFromItsBeginningToItsEndWhereverItIsMovedTo) {
  const auto center = std::make_shared<NotificationCenter>();
  std::string heard;
  const auto hear = [&](const Notification& notification) { heard += notification.name().view(); };
  std::optional<QVObservation> first(std::in_place, std::initializer_list<String>{"a", "b"}, hear);
  QVObservation elsewhere("a", hear, center);
  QVObservation ending;
  ending = QVObservation("c", [&](const Notification& notification) {
    ending.end();
    hear(notification);
  });
  QVObservation moved = *std::exchange(first, std::nullopt);
  for (const char* name : {"a", "b", "c", "c", "d"}) post(name);
  center->postNotification(Notification("a"));
  moved = QVObservation();
  post("a");
  EXPECT_EQ(heard, "abca");
  EXPECT_FALSE(moved.isActive() || ending.isActive() || !elsewhere.isActive());
  EXPECT_FALSE(QVObservation({"a", nullptr}, hear).isActive());
  post("a");
  EXPECT_EQ(heard, "abca");
}

TEST_F(QVConvenienceTest, SendsAHitInEachFormAndReadsItsAnswer) {
  const HTTPServer server;
  manager = QVNetworkManager::sharedInstance();
  manager->listenerDelegate()->listen(kQVNotification_HTTPPartnerRequest + "their");
  const std::string u = server.url("/p");
  const std::tuple<QVHit, std::string, std::string> cases[] = {
      {QVHit(u), "GET /p", ""},
      {QVHit(u).parameter("a b", "\u00fc&").parameter("c", ""), "GET /p?a%20b=%C3%BC%26&c=", ""},
      {QVHit(u + "?x=1#f?").parameter("a", "1"), "GET /p?x=1&a=1", ""},
      {QVHit(u).body("raw").field("a", "=").field("b", "2"), "POST /p", "raw&a=%3D&b=2"},
      {QVHit(u).body("x").body(nullptr).forConsent(), "GET /p", ""},
      {QVHit(u).asSegment(), "GET /p", ""},
      {QVHit(u).forPartner("their"), "GET /p", ""}};
  std::uint32_t number = 0;
  for (const auto& [hit, line, body] : cases) {
    std::optional<int> status;
    const QVObservation observer(hit.answerName(), [&](const Notification& answer) {
      status = QVUserInfo(answer).status();
    });
    const Recorder answers{{hit.answerName()}};
    EXPECT_TRUE(hit.isValid() && QVHit(hit).set("own", number).post());
    const auto heard = answers.waitFor(1);
    ASSERT_EQ(heard.size(), 1U) << line;
    const QVUserInfo info(heard[0]);
    const auto request = server.requests().back();
    EXPECT_EQ(request.method + " " + request.target, line);
    EXPECT_EQ(request.body, body);
    EXPECT_EQ(info.id(), number);
    EXPECT_EQ(status, 200);
    EXPECT_EQ(info.get("own"), number);
    EXPECT_EQ(std::tuple(info.url(), info.body(), info.content(), info.error()),
              std::tuple(hit.request().get("url").string(),
                         String(body.empty() ? nullptr : body.c_str()), String("ok"), String()));
    Dictionary again = hit.request();
    again.set("own", number++);
    EXPECT_EQ(Value(info.request()), Value(again)) << line;
  }
}

TEST_F(QVConvenienceTest, SendsAFailedHitOnceMoreByWayOfTheHitsThatWait) {
  const HTTPServer server(
      [](const httplib::Request&, httplib::Response& response) { response.status = 404; });
  manager = QVNetworkManager::sharedInstance();
  const Recorder errors{{kQVNotification_HTTPRequestError}};
  QVHit(server.url()).field("page", "home").set("data", "mine").post();
  const QVHit refused = QVHit("bare").parameter("a", "b");
  const auto heard = errors.waitFor(1);
  ASSERT_EQ(heard.size(), 1U);
  EXPECT_EQ(QVUserInfo(heard[0]).status(), 404);
  network->change(0);
  ASSERT_TRUE(runMainQueueUntil([&] { return hitsAreHeld(); }));
  QVHit(QVUserInfo(heard[0]).request()).post();
  ASSERT_EQ(queued().size(), 1U);
  EXPECT_EQ(QVUserInfo(queued()[0]).body(), String("page=home"));
  EXPECT_EQ(QVUserInfo(queued()[0]).id(), 1U);
  EXPECT_TRUE(!refused.isValid() && refused.post());
  const QVUserInfo error(errors.heard().back());
  EXPECT_EQ(error.error(), kQVErrorMessageInvalidURL);
  EXPECT_EQ(Value(error.request()), Value(Dictionary{{"url", "bare?a=b"}}));
}

TEST(QVUserInfo, ReadsWhatIsOfAnotherTypeAsNothing) {
  const QVUserInfo odd(Dictionary{
      {"ID", "7"}, {"url", 7}, {"content", Data("x"s)}, {"HTTPURLResponse", 404}, {"error", true}});
  EXPECT_FALSE(odd.id() || odd.status() || QVUserInfo(nullptr).id());
  EXPECT_TRUE(odd.url().isNull() && odd.content().isNull() && odd.error().isNull());
  for (const Value& id : {Value(-1), Value(1.5), Value(std::int64_t{1} << 32)}) {
    EXPECT_EQ(QVUserInfo(Dictionary{{"ID", id}}).id(), std::nullopt) << id;
  }
  EXPECT_EQ(QVUserInfo(Dictionary{{"ID", std::int64_t{UINT32_MAX}}}).id(), UINT32_MAX);
  EXPECT_EQ(Value(odd.request()),
            Value(Dictionary{{"url", 7}, {"HTTPURLResponse", 404}, {"error", true}}));
}

}  // namespace
