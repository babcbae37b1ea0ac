#include "tests/support/CoreTest.h"
#include "tests/support/HTTPServer.h"
#include "tests/support/RawServer.h"
#include "tests/support/Test.h"

namespace {

const std::string kSent = "QVNotification: HTTP Request Sent";
const std::string kError = "QVNotification: HTTP Request Error";
const std::string kAnswer = "Answer";
const std::string kConfigurationAnswer = "QVNotification: Privacy Configuration Responseabc";
const String kLastUpdate("qv_last_update_for_configuration_abc");

class QVHTTPOperationTest : public QVTest::CoreTest {
 protected:
  QVHTTPOperationTest() { QVDebug::setDebugLevel(6); }

  /// Runs an operation with this request data, on the test's own thread.
  static std::shared_ptr<QVHTTPOperation> run(const Dictionary& data) {
    auto operation = std::make_shared<QVHTTPOperation>()->initWithData(data);
    operation->main();
    return operation;
  }
  Dictionary requestTo(const std::string& url, const std::string& type = kAnswer) const {
    return {{"url", url}, {"RequestType", type}, {"own", 7}};
  }
  /// A server that answers every request with this status and a body.
  static QVTest::HTTPServer::Handler answering(int status) {
    return [status](const httplib::Request&, httplib::Response& response) {
      response.status = status;
      // The byte-order mark is no part of the text.
      if (status != 304)
        response.set_content(
            "\xef\xbb\xbf"
            "body",
            "text/plain");
    };
  }

  QVTest::Recorder recorder{{kSent, kError, kAnswer, kConfigurationAnswer}};
};

TEST_F(QVHTTPOperationTest, PostsSentAndThenTheAnswerWithTheRequestsOwnKeys) {
  QVTest::HTTPServer server(answering(200));
  run(requestTo(server.url()));
  ASSERT_THAT(recorder.names(), ElementsAre(kSent, kAnswer));
  const auto answer = recorder.heard()[1];
  EXPECT_EQ(answer.object(), QVNetworkManager::sharedInstance());
  EXPECT_EQ(
      answer.userInfo(),
      (Value(Dictionary{
          {"url", server.url()}, {"RequestType", kAnswer}, {"own", 7}, {"content", "body"}})));
}

TEST_F(QVHTTPOperationTest, CarriesItsOwnRequestDataInSentAndACopyInTheAnswer) {
  QVTest::HTTPServer server(answering(200));
  const auto operation = run(requestTo(server.url()));
  const auto heard = recorder.heard();
  const Dictionary own = heard[0].userInfo().get("content").dictionary();
  EXPECT_TRUE(own.isSameObject(operation->userInfo()));
  EXPECT_EQ(own.get("content"), Value("body"));  // it came after the notification was posted
  EXPECT_EQ(heard[0].userInfo().get("data").object(), operation->request());
  EXPECT_FALSE(heard[1].userInfo().isSameObject(operation->userInfo()));
}

TEST_F(QVHTTPOperationTest, ClassesOnlyThreeStatusesAsFailures) {
  std::atomic<int> current = 0;
  QVTest::HTTPServer server([&current](const httplib::Request&, httplib::Response& response) {
    response.status = current;
    response.set_content("body", "text/plain");
  });
  for (int status = 200; status < 600; ++status) {
    current = status;
    const bool isFailure = status == 403 || status == 404 || status == 500;
    const bool allowsNoBody = status == 204 || status == 205 || status == 304;
    const bool isRedirection = status > 300 && status < 309;
    if (allowsNoBody || isRedirection) continue;
    QVTest::Recorder own{{kSent, kError, kAnswer}};
    run(requestTo(server.url()));
    EXPECT_THAT(own.names(), ElementsAre(kSent, isFailure ? kError : kAnswer)) << status;
  }
}

TEST_F(QVHTTPOperationTest, CarriesCopiesOfResponseAndRequestInAFailure) {
  QVTest::HTTPServer server(answering(404));
  const auto operation = run(requestTo(server.url()));
  const auto failure = recorder.heard().at(1);
  const auto response = std::dynamic_pointer_cast<HTTPURLResponse>(
      failure.userInfo().get("HTTPURLResponse").object());
  const auto request =
      std::dynamic_pointer_cast<MutableURLRequest>(failure.userInfo().get("data").object());
  ASSERT_TRUE(response && request);
  EXPECT_EQ(response->statusCode(), 404);
  EXPECT_NE(request, operation->request());
  EXPECT_EQ(request->url()->absoluteString(), String(server.url()));
  EXPECT_EQ(failure.userInfo().get("own"), Value(7));
  EXPECT_TRUE(failure.userInfo().get("error").isNil());
  EXPECT_TRUE(failure.userInfo().get("content").isNil());
}

TEST_F(QVHTTPOperationTest, ReportsABrokenTransferWithoutAnError) {
  QVTest::RawServer server([](QVTest::RawServer::Connection&) {});
  run(requestTo(server.url()));
  ASSERT_THAT(recorder.names(), ElementsAre(kSent, kError));
  EXPECT_EQ(recorder.heard()[1].userInfo().keys(),
            (std::vector<String>{"RequestType", "data", "own", "url"}));
}

TEST_F(QVHTTPOperationTest, RefusesAnInvalidURLWithTheUnchangedRequestData) {
  for (const Value& url : {Value("bare"), Value(""), Value("//host/"), Value(5), Value()}) {
    Dictionary data{{"RequestType", kAnswer}};
    data.set("url", url);
    QVTest::Recorder own{{kSent, kError, kAnswer}};
    run(data);
    ASSERT_THAT(own.names(), ElementsAre(kError)) << url.description().view();
    EXPECT_EQ(Value(own.heard()[0].userInfo()), Value(data));
  }
  std::make_shared<QVHTTPOperation>()->main();  // without request data at all
  EXPECT_TRUE(recorder.heard().back().userInfo().isNull());
}

TEST_F(QVHTTPOperationTest, IsSilentWhenCancelledOrWhileHitsAreBlocked) {
  QVTest::HTTPServer server;
  const auto cancelled = std::make_shared<QVHTTPOperation>()->initWithData(requestTo(server.url()));
  cancelled->cancel();
  cancelled->main();
  QVDebug::blockHits(true);
  run(requestTo(server.url()));
  EXPECT_THAT(recorder.names(), IsEmpty());
  EXPECT_THAT(server.requests(), IsEmpty());
}

TEST_F(QVHTTPOperationTest, PostsTextAndGetsOtherwise) {
  QVTest::HTTPServer server;
  Dictionary data = requestTo(server.url());
  run(data);
  data.set("POSTData", "");
  run(data);
  data.set("POSTData", 12);  // not text: no body
  run(data);
  data.set("POSTData", "a=\xc3\xa9");
  run(data);
  const auto requests = server.requests();
  ASSERT_EQ(requests.size(), 4U);
  for (std::size_t i = 0; i < 3; ++i) EXPECT_EQ(requests[i].method + requests[i].body, "GET");
  EXPECT_EQ(requests[3].method + requests[3].body, "POSTa=\xc3\xa9");
}

TEST_F(QVHTTPOperationTest, AppendsPostDataAsText) {
  const auto appended = [](const Value& existing, const String& text) {
    Dictionary data = Dictionary::dictionary();
    data.set("POSTData", existing);
    const auto operation = std::make_shared<QVHTTPOperation>()->initWithData(data);
    operation->addPostData(text);
    return operation->userInfo().get("POSTData").description();
  };
  EXPECT_EQ(appended("a", "b"), String("ab"));
  EXPECT_EQ(appended(nullptr, "b"), String("(null)b"));
  EXPECT_EQ(appended(5, "b"), String("5b"));
}

TEST_F(QVHTTPOperationTest, CopiesTheRequestDataItIsGiven) {
  Dictionary data{{"url", "http://h/"}};
  const auto operation = std::make_shared<QVHTTPOperation>()->initWithData(data);
  data.set("url", "changed");
  EXPECT_EQ(operation->userInfo().get("url"), Value("http://h/"));
  EXPECT_EQ(operation->timestamp(), 0);
}

TEST_F(QVHTTPOperationTest, SendsToTheURLThatItsDataHoldsWhenItRuns) {
  QVTest::HTTPServer server(answering(200));
  const Dictionary data = requestTo("http://127.0.0.1:1/");
  const auto parsed = QVPlatform::URL::URLWithString(data.get("url").string());
  const auto operation = std::make_shared<QVHTTPOperation>()->initWithData(data, parsed);
  operation->userInfo().set("url", server.url());
  operation->main();
  EXPECT_THAT(recorder.names(), ElementsAre(kSent, kAnswer));
}

TEST_F(QVHTTPOperationTest, ReadsABodyAsTextOrAsNothing) {
  const QVHTTPOperation operation;
  EXPECT_EQ(operation.getContentOfData(nullptr), String(""));
  EXPECT_EQ(operation.getContentOfData(Data("")), String(""));
  EXPECT_EQ(operation.getContentOfData(Data("\xc3\xa9")), String("\xc3\xa9"));
  EXPECT_EQ(operation.getContentOfData(Data("caf\xe9")), String(""));
}

TEST_F(QVHTTPOperationTest, AsksForAConfigurationOnTheConditionOfItsLastDownload) {
  QVTest::HTTPServer server;
  run(requestTo(server.url(), kConfigurationAnswer));
  EXPECT_EQ(server.requests()[0].field("If-Modified-Since"), "Thu, 01 Jan 1970 00:00:00 GMT");
  const auto stored = QVUserDefaults::retrieveInfoFromUserDefaults(kLastUpdate);
  EXPECT_GT(stored.string(), String("1700000000"));

  QVUserDefaults::saveInfoToUserDefaultsForLabel("1600000000", kLastUpdate);
  run(requestTo(server.url(), kConfigurationAnswer));
  EXPECT_EQ(server.requests()[1].field("If-Modified-Since"), "Sun, 13 Sep 2020 12:26:40 GMT");
  run(requestTo(server.url()));
  EXPECT_EQ(server.requests()[2].field("If-Modified-Since"), "");
}

TEST_F(QVHTTPOperationTest, TakesAConditional304AsNothingToDo) {
  QVTest::HTTPServer server(answering(304));
  QVUserDefaults::saveInfoToUserDefaultsForLabel("5", kLastUpdate);
  run(requestTo(server.url(), kConfigurationAnswer));
  EXPECT_THAT(recorder.names(), ElementsAre(kSent));
  EXPECT_EQ(QVUserDefaults::retrieveInfoFromUserDefaults(kLastUpdate), Value("5"));
  run(requestTo(server.url()));  // not conditional: an answer like any other
  EXPECT_THAT(recorder.names(), ElementsAre(kSent, kSent, kAnswer));
  EXPECT_EQ(recorder.heard()[2].userInfo().get("content"), Value(""));
}

TEST_F(QVHTTPOperationTest, MovesTheLastDownloadForwardWhenItFailsToo) {
  QVTest::HTTPServer missing(answering(404));
  QVTest::RawServer broken([](QVTest::RawServer::Connection&) {});
  for (const std::string& url : {missing.url(), broken.url()}) {
    QVUserDefaults::saveInfoToUserDefaultsForLabel("5", kLastUpdate);
    QVTest::Recorder own{{kSent, kError, kConfigurationAnswer}};
    run(requestTo(url, kConfigurationAnswer));
    EXPECT_THAT(own.names(), ElementsAre(kSent, kError));
    EXPECT_NE(QVUserDefaults::retrieveInfoFromUserDefaults(kLastUpdate), Value("5"));
  }
}

}  // namespace
