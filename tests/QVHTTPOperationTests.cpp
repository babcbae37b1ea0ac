#include "pages/delivery.h"
#include "tests/support/CoreTest.h"
#include "tests/support/HTTPServer.h"
#include "tests/support/RawServer.h"
#include "tests/support/Test.h"

namespace {

const std::string kSent = "QVNotification: HTTP Request Sent";
const std::string kError = "QVNotification: HTTP Request Error";
const std::string kAnswer = "Answer";
const std::string kConfigurationAnswer = "QVNotification: Privacy Configuration Responseabc";

class QVHTTPOperationTest : public CoreTest {
 protected:
  QVHTTPOperationTest() { QVDebug::setDebugLevel(6); }

  /// Runs an operation with this request data, on the test's own thread.
  static std::shared_ptr<QVHTTPOperation> run(const Dictionary& data) {
    auto operation = std::make_shared<QVHTTPOperation>()->initWithData(data);
    operation->main();
    return operation;
  }
  static Dictionary requestTo(const std::string& url, const std::string& type = kAnswer) {
    return {{"url", url}, {"RequestType", type}, {"own", 7}};
  }
  /// What comes of the request data in order: each notification's name.
  static std::vector<std::string> outcomeOf(const Dictionary& data) {
    const Recorder own{{kSent, kError, kAnswer, kConfigurationAnswer}};
    run(data);
    return own.names();
  }

  Recorder recorder{{kSent, kError, kAnswer}};
  /// Its answers have this status.
  std::atomic<int> status = 200;
  HTTPServer server{[this](const auto&, auto& response) {
    response.status = status;
    // The byte-order mark is no part of the text.
    if (status != 304) response.set_content("\xef\xbb\xbf" + "body"s, "text/plain");
  }};
};

TEST_F(QVHTTPOperationTest, PostsSentWhenTheTransferIsOverAndThenTheAnswerWithTheRequestsOwnKeys) {
  const auto operation = std::make_shared<QVHTTPOperation>()->initWithData(requestTo(server.url()));
  const auto center = NotificationCenter::defaultCenter();
  const auto lookAtSent = [&](const Notification& sent) {
    EXPECT_THAT(server.requests(), SizeIs(1));
    EXPECT_FALSE(operation->result().isNull());
    EXPECT_THAT(recorder.names(), ElementsAre(kSent));
    const Dictionary own = sent.userInfo().get("content").dictionary();
    EXPECT_EQ(Value(own), Value(operation->userInfo()));
    EXPECT_TRUE(own.get("content").isNil());
    EXPECT_EQ(sent.userInfo().get("data").object(), operation->request());
    EXPECT_EQ(sent.userInfo().count(), 2U);
  };
  center->addObserver(this, lookAtSent, kSent);
  operation->main();
  center->removeObserver(this);
  ASSERT_THAT(recorder.names(), ElementsAre(kSent, kAnswer));
  const Dictionary own = recorder.heard()[0].userInfo().get("content").dictionary();
  EXPECT_EQ(own.get("content"), Value("body"));  // which came later: it is no copy
  const auto answer = recorder.heard()[1];
  EXPECT_EQ(answer.object(), QVNetworkManager::sharedInstance());
  const Dictionary expected{
      {"url", server.url()}, {"RequestType", kAnswer}, {"own", 7}, {"content", "body"}};
  EXPECT_EQ(Value(answer.userInfo()), Value(expected));
  EXPECT_FALSE(answer.userInfo().isSameObject(operation->userInfo()));
}

TEST_F(QVHTTPOperationTest, ClassesOnlyThreeStatusesAsFailuresAndTellsEachToItsObservers) {
  std::vector<int> told;
  const auto note = [&](const auto&) { told.push_back(QVHTTPOperation::statusCodeBeingTold()); };
  const auto center = NotificationCenter::defaultCenter();
  for (const auto& name : {kSent, kError, kAnswer}) center->addObserver(&told, note, name);
  for (const int each : {200, 201, 400, 401, 402, 403, 404, 405, 499, 500, 501, 502, 503, 599}) {
    status = each;
    const bool isFailure = each == 403 || each == 404 || each == 500;
    EXPECT_THAT(outcomeOf(requestTo(server.url())),
                ElementsAre(kSent, isFailure ? kError : kAnswer))
        << each;
    EXPECT_THAT(std::exchange(told, {}), ElementsAre(each, each));
  }
  EXPECT_EQ(QVHTTPOperation::statusCodeBeingTold(), 0);
  // One that is refused while another one's answer is told has none.
  center->addObserver(
      &told, [](const auto&) { post(kQVNotification_HTTPRequest); }, kAnswer);
  run(requestTo(server.url()));
  EXPECT_THAT(told, ElementsAre(599, 599, 0));
  center->removeObserver(&told);
}

TEST_F(QVHTTPOperationTest, SendsOnceMoreWhatFailedThroughTheQueueThatHoldsHits) {
  const auto manager = QVNetworkManager::sharedInstance();
  const Recorder requests{{kQVNotification_HTTPRequest}};
  const auto center = NotificationCenter::defaultCenter();
  center->addObserver(&requests, &sendOnceMore, kQVNotification_HTTPRequestError);
  const HTTPServer failing([](const auto& asked, auto& response) {
    response.status = std::stoi(asked.path.substr(1));
    response.set_content("x", "text/plain");
  });
  for (const String url : {failing.url("/403"), failing.url("/500"), "bare"s}) {
    post(kQVNotification_HTTPRequest, {{"url", url}, {"own", 7}, {"data", "d"}});
  }
  EXPECT_TRUE(waitUntil([&] { return manager->operationQueue()->operationCount() == 0; }));
  EXPECT_THAT(failing.requests(), SizeIs(5));
  EXPECT_THAT(requests.heard(), SizeIs(6));
  EXPECT_EQ(Value(requests.heard().back().userInfo()),
            Value(Dictionary{{"url", failing.url("/500")}, {"own", 7}, {"tries", 3}}));
  center->removeObserver(&requests);
}

TEST_F(QVHTTPOperationTest, TakesFromWhatIsToldOnlyWhatTheCoreAdded) {
  const auto response = std::make_shared<HTTPURLResponse>();
  const std::pair<Dictionary, Dictionary> cases[] = {
      {{{"url", "u"}, {"RequestType", "t"}, {"ID", 1U}, {"content", "c"}}, {{"url", "u"}}},
      {{{"url", "u"}, {"error", kQVErrorMessageInvalidURL}, {"own", 1}},
       {{"url", "u"}, {"own", 1}}},
      {{{"error", "own"}, {"data", "own"}}, {{"error", "own"}, {"data", "own"}}},
      {{{"HTTPURLResponse", "own"}}, {{"HTTPURLResponse", "own"}}},
      {{{"HTTPURLResponse", response}, {"RequestType", kConfigurationAnswer}},
       {{"HTTPURLResponse", "configuration"}}},
      {nullptr, nullptr}};
  for (const auto& [told, data] : cases) {
    EXPECT_EQ(Value(QVNetworkManager::requestDataFromUserInfo(told)), Value(data));
  }
}

TEST_F(QVHTTPOperationTest, CarriesCopiesOfResponseAndRequestInAFailureAndNoError) {
  status = 404;
  const auto operation = run(requestTo(server.url()));
  const Dictionary failure = recorder.heard().at(1).userInfo();
  const auto response =
      std::dynamic_pointer_cast<HTTPURLResponse>(failure.get("HTTPURLResponse").object());
  const auto request = std::dynamic_pointer_cast<MutableURLRequest>(failure.get("data").object());
  ASSERT_TRUE(response && request);
  EXPECT_EQ(response->statusCode(), 404);
  EXPECT_NE(request, operation->request());
  EXPECT_EQ(request->url()->absoluteString(), String(server.url()));
  EXPECT_EQ(failure.get("own"), Value(7));
  EXPECT_EQ(failure.count(), 5U);
  // Modules may hand in an error, which counts whatever the answer is.
  const auto error = std::make_shared<Error>("domain", 1, "text");
  EXPECT_FALSE(operation->checkRequestErrorWithResponse(nullptr, nullptr));
  EXPECT_TRUE(operation->checkRequestErrorWithResponse(error, nullptr));
  const Dictionary packed = operation->packErrorWithResponse(error, nullptr);
  EXPECT_NE(std::dynamic_pointer_cast<Error>(packed.get("error").object()), error);
  EXPECT_FALSE(packed.get("error").isNil() || packed.isSameObject(operation->userInfo()));

  RawServer broken([](auto&) {});
  run(requestTo(broken.url()));
  ASSERT_THAT(recorder.names(), ElementsAre(kSent, kError, kSent, kError));
  EXPECT_EQ(recorder.heard()[3].userInfo().keys(),
            (std::vector<String>{"RequestType", "data", "own", "url"}));
}

TEST_F(QVHTTPOperationTest, RefusesAnInvalidURLWithTheUnchangedRequestData) {
  for (const Value& url : {Value("bare"), Value(""), Value("//host/"), Value(5), Value()}) {
    Dictionary data{{"RequestType", kAnswer}};
    data.set("url", url);
    EXPECT_THAT(outcomeOf(data), ElementsAre(kError)) << url.description().view();
    EXPECT_EQ(Value(recorder.heard().back().userInfo()), Value(data));
  }
  std::make_shared<QVHTTPOperation>()->main();  // without request data at all
  EXPECT_TRUE(recorder.heard().back().userInfo().isNull());
}

TEST_F(QVHTTPOperationTest, IsSilentWhenCancelledOrWhileHitsAreBlocked) {
  const auto cancelled = std::make_shared<QVHTTPOperation>()->initWithData(requestTo(server.url()));
  cancelled->cancel();
  cancelled->main();
  QVDebug::blockHits(true);
  EXPECT_THAT(outcomeOf(requestTo(server.url())), IsEmpty());
  EXPECT_THAT(recorder.names(), IsEmpty());
  EXPECT_THAT(server.requests(), IsEmpty());
}

TEST_F(QVHTTPOperationTest, PostsTextAndGetsOtherwise) {
  const std::pair<Value, std::string> cases[] = {
      {Value(), "GET"}, {"", "GET"}, {12, "GET"}, {"a=\xc3\xa9", "POSTa=\xc3\xa9"}};
  for (const auto& [text, sent] : cases) {
    Dictionary data = requestTo(server.url());
    data.set("POSTData", text);
    const auto operation = run(data);
    const auto last = server.requests().back();
    EXPECT_EQ(last.method + last.body, sent);
    // The body is the text itself, which may be long, and no copy of it.
    const char* const bytes = last.body.empty() ? nullptr : text.string().UTF8String();
    EXPECT_EQ(operation->request()->HTTPBody().view().data(), bytes);
  }
}

TEST_F(QVHTTPOperationTest, AppendsPostDataAsTextToACopyOfTheRequestData) {
  const std::pair<Value, const char*> cases[] = {{"a", "ab"}, {nullptr, "(null)b"}, {5, "5b"}};
  for (const auto& [existing, joined] : cases) {
    Dictionary data{{"url", "http://h/"}};
    data.set("POSTData", existing);
    const auto operation = std::make_shared<QVHTTPOperation>()->initWithData(data);
    operation->addPostData("b");
    EXPECT_EQ(operation->userInfo().get("POSTData"), Value(joined));
    EXPECT_EQ(data.get("POSTData"), existing);
    EXPECT_EQ(operation->timestamp(), 0);
  }
}

TEST_F(QVHTTPOperationTest, GivesTheRequestItsTimeoutAndTheCachePolicyThatIsSet) {
  using enum URLRequestCachePolicy;
  const auto first = run(requestTo(server.url()))->request();
  EXPECT_EQ(first->timeoutInterval(), 5.0);
  EXPECT_EQ(first->cachePolicy(), kReloadIgnoringLocalCacheData);
  kQVNetworkDefaultRequestCachePolicy = kReturnCacheDataDontLoad;  // which refuses, as nothing is
  EXPECT_THAT(outcomeOf(requestTo(server.url())), ElementsAre(kSent, kError));
  EXPECT_THAT(server.requests(), SizeIs(1));
}

TEST_F(QVHTTPOperationTest, AnswersEachKindOfRequestThatIsPosted) {
  const auto manager = QVNetworkManager::sharedInstance();
  manager->listenerDelegate()->listen(kQVNotification_ConfigurationRequest + String("c"));
  manager->listenerDelegate()->listen(kQVNotification_HTTPPartnerRequest + String("p"));
  const std::tuple<String, std::string, bool> cases[] = {
      {kQVNotification_HTTPRequest, "QVNotification: HTTP Response", false},
      {kQVNotification_SegmentRequest, "QVNotification: Segment Response", false},
      {kQVNotification_ConfigurationRequest + String("c"),
       "QVNotification: Privacy Configuration Responsec", true},
      {kQVNotification_HTTPPartnerRequest + String("p"), "QVNotification: Partner Response: p",
       false}};
  unsigned number = 0;
  for (const auto& [request, answer, isConditional] : cases) {
    const Recorder answers{{answer}};
    post(request, {{"url", server.url()}, {"own", 7}});
    ASSERT_THAT(answers.waitFor(1), SizeIs(1)) << answer;
    const Dictionary expected{{"url", server.url()},
                              {"own", 7},
                              {"RequestType", answer},
                              {"ID", number++},
                              {"content", "body"}};
    EXPECT_EQ(Value(answers.heard()[0].userInfo()), Value(expected));
    EXPECT_EQ(answers.heard()[0].object(), manager);
    EXPECT_EQ(server.requests().back().field("If-Modified-Since").empty(), !isConditional);
  }
}

TEST_F(QVHTTPOperationTest, SendsToTheURLThatItsDataHoldsWhenItRuns) {
  network->change(0);
  const auto queue = QVNetworkManager::sharedInstance()->operationQueue();
  post(kQVNotification_HTTPRequest, {{"url", "http://127.0.0.1:1/"}});
  const auto waiting = std::dynamic_pointer_cast<QVHTTPOperation>(queue->operationAtIndex(0));
  waiting->userInfo().set("url", server.url());
  network->change(network->kReachable);
  EXPECT_TRUE(runMainQueueUntil([&] { return server.requests().size() == 1; }));
}

TEST_F(QVHTTPOperationTest, ReadsABodyAsTextOrAsNothing) {
  const std::pair<Data, const char*> cases[] = {
      {nullptr, ""}, {Data(""), ""}, {Data("\xc3\xa9"), "\xc3\xa9"}, {Data("caf\xe9"), ""}};
  for (const auto& [body, text] : cases) {
    EXPECT_EQ(QVHTTPOperation().getContentOfData(body), String(text));
  }
}

TEST_F(QVHTTPOperationTest, AsksForAConfigurationOnTheConditionOfItsLastDownload) {
  const String lastDownload("qv_last_update_for_configuration_abc");
  // A status of 0: the connection breaks.
  const std::tuple<const char*, const char*, int, std::vector<std::string>, bool> cases[] = {
      {"", "Thu, 01 Jan 1970 00:00:00 GMT", 200, {kSent, kConfigurationAnswer}, true},
      {"1600000000", "Sun, 13 Sep 2020 12:26:40 GMT", 200, {kSent, kConfigurationAnswer}, true},
      {"1709251199", "Thu, 29 Feb 2024 23:59:59 GMT", 200, {kSent, kConfigurationAnswer}, true},
      {"253402300799", "Fri, 31 Dec 9999 23:59:59 GMT", 200, {kSent, kConfigurationAnswer}, true},
      {"253402300800", "Sat, 01 Jan 10000 00:00:00 GMT", 200, {kSent, kConfigurationAnswer}, true},
      {"5", "Thu, 01 Jan 1970 00:00:05 GMT", 304, {kSent}, false},
      {"5", "Thu, 01 Jan 1970 00:00:05 GMT", 404, {kSent, kError}, true},
      {"-1", "Tue, 20 Dec 5828963 00:00:00 GMT", 200, {kSent, kConfigurationAnswer}, true},
      {"5", "", 0, {kSent, kError}, true}};
  RawServer broken([](auto&) {});
  for (const auto& [stored, asked, answered, posts, countsAsDownload] : cases) {
    SCOPED_TRACE(testing::Message() << stored << ' ' << answered);
    QVUserDefaults::saveInfoToUserDefaultsForLabel(stored, lastDownload);
    status = answered;
    const auto& url = answered == 0 ? broken.url() : server.url();
    EXPECT_EQ(outcomeOf(requestTo(url, kConfigurationAnswer)), posts);
    if (answered != 0) {
      EXPECT_EQ(server.requests().back().field("If-Modified-Since"), asked);
    }
    const String after = QVUserDefaults::retrieveInfoFromUserDefaults(lastDownload).string();
    const double age =
        Date::now().secondsSince1970 - static_cast<double>(Value(after).longLongValue());
    EXPECT_EQ(age >= 0 && age < 60, countsAsDownload) << age;
    EXPECT_EQ(after == String(stored), !countsAsDownload);
  }
  status = 304;  // without a condition an answer like any other
  EXPECT_THAT(outcomeOf(requestTo(server.url())), ElementsAre(kSent, kAnswer));
  EXPECT_EQ(recorder.heard().back().userInfo().get("content"), Value(""));
  EXPECT_EQ(server.requests().back().field("If-Modified-Since"), "");
}

}  // namespace
