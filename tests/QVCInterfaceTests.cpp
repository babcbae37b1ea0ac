#include <QVCore/qvcore.h>

#include "tests/support/HTTPServer.h"
#include "tests/support/NetworkManagerTest.h"
#include "tests/support/Test.h"

namespace {

/// A program in C, in a process without a web view.
class QVCInterfaceTest : public NetworkManagerTest {
 protected:
  struct Heard {
    std::mutex mutex;
    std::vector<std::string> texts;
    std::counting_semaphore<> count{0};
  };

  static void hear(const char* name, const qv_info* info, void* user) {
    auto& heard = *static_cast<Heard*>(user);
    const std::lock_guard lock(heard.mutex);
    qv_info* const copy = qv_info_copy(info);
    const char* const own = qv_info_text(copy, "own");
    heard.texts.push_back(name + ": "s + (own ? own : "-") + " " +
                          std::to_string(qv_info_status(copy)));
    qv_info_free(copy);
    heard.count.release();
  }
  static std::string taken(char* text) {
    std::string copy = text ? text : "NULL";
    qv_free(text);
    return copy;
  }
};

TEST_F(QVCInterfaceTest, SendsHitsAndHearsWhatBecomesOfThem) {
  const HTTPServer server([](const httplib::Request& request, httplib::Response& response) {
    response.status = request.path == "/gone" ? 404 : 200;
    response.set_content("welcome", "text/plain");
  });
  ASSERT_EQ(qv_start(), QV_OK);
  ASSERT_EQ(qv_add_partner("their"), QV_OK);
  Heard heard;
  std::vector<long> listeners;
  for (const char* name : {QV_NAME_HTTP_RESPONSE, QV_NAME_HTTP_REQUEST_ERROR,
                           QV_NAME_SEGMENT_RESPONSE, QV_NAME_HTTP_PARTNER_RESPONSE "their"}) {
    ASSERT_GT(listeners.emplace_back(qv_listen(name, hear, &heard)), 0);
  }
  const std::tuple<const char*, std::string, const char*, const char*> cases[] = {
      {QV_NAME_HTTP_REQUEST, "/a", nullptr, QV_NAME_HTTP_RESPONSE ": x 200"},
      {QV_NAME_SEGMENT_REQUEST, "/b", "body", QV_NAME_SEGMENT_RESPONSE ": x 200"},
      {QV_NAME_HTTP_PARTNER_REQUEST "their", "/c", "",
       QV_NAME_HTTP_PARTNER_RESPONSE "their: x 200"},
      {QV_NAME_HTTP_REQUEST, "/gone", nullptr, QV_NAME_HTTP_REQUEST_ERROR ": x 404"}};
  for (const auto& [name, path, body, outcome] : cases) {
    qv_info* const info = qv_info_new();
    qv_info_set_text(info, QV_KEY_URL, server.url(path).c_str());
    qv_info_set_text(info, QV_KEY_POST_DATA, body);
    qv_info_set_text(info, "own", "x");
    ASSERT_EQ(qv_post(name, info), QV_OK);
    qv_info_free(info);
    ASSERT_TRUE(heard.count.try_acquire_for(10s)) << outcome;
    EXPECT_EQ(heard.texts.back(), outcome);
  }
  EXPECT_EQ(qv_send(server.url("/d").c_str(), "e=f"), QV_OK);
  ASSERT_TRUE(heard.count.try_acquire_for(10s));
  EXPECT_EQ(server.requests().back().body, "e=f");
  EXPECT_EQ(qv_send("bare", nullptr), QV_OK);
  EXPECT_EQ(heard.texts.back(), QV_NAME_HTTP_REQUEST_ERROR ": - 0");
  for (const long listener : listeners) EXPECT_EQ(qv_unlisten(listener), QV_OK);
  EXPECT_EQ(qv_wait_for_user_agent(), QV_OK);
  EXPECT_TRUE(QVNetworkManager::sharedInstance()->shouldWaitForUserAgent());
}

TEST_F(QVCInterfaceTest, RunsTheMainQueueByItsDescriptorOrUntilItIsStopped) {
  pollfd waiting{qv_main_queue_descriptor(), POLLIN, 0};
  int runs = 0;
  MainQueue::mainQueue().async([&] { ++runs; });
  EXPECT_EQ(poll(&waiting, 1, 0), 1);
  qv_main_queue_drain();
  EXPECT_EQ(poll(&waiting, 1, 0), 0);
  MainQueue::mainQueue().async([&] {
    ++runs;
    qv_main_queue_stop();
  });
  qv_main_queue_run();
  EXPECT_EQ(runs, 2);
}

TEST_F(QVCInterfaceTest, KeepsAnswersAndSendsARequestOnceMore) {
  struct Kept {
    qv_info* request = nullptr;
    qv_info* copy = nullptr;
  } kept;
  const auto keep = [](const char*, const qv_info* info, void* user) {
    *static_cast<Kept*>(user) = {qv_info_request(info), qv_info_copy(info)};
  };
  const long listener = qv_listen("error", keep, &kept);
  const auto url = URL::URLWithString("http://h/");
  Value deep;
  for (std::size_t i = 0; i < 2 * Value::kMaximumDepth; ++i) deep = Array({deep});
  post("error", {{"ID", 7U},
                 {"url", "http://h/\"\n"},
                 {"own", Array{1.5, true, Null::null(), "\u00e4"}},
                 {"RequestType", "t"},
                 {"error", "Error : invalid URL"},
                 {"deep", deep},
                 {"when", Date{2}},
                 {"bytes", Data("x"s)},
                 {"nan", std::nan("")},
                 {"content", Dictionary::dictionary()},
                 {"data", std::make_shared<MutableURLRequest>(url, URLRequestCachePolicy{}, 5)},
                 {"HTTPURLResponse", std::make_shared<HTTPURLResponse>("http://h/", 503, "")}});
  EXPECT_EQ(qv_unlisten(listener), QV_OK);
  EXPECT_EQ(qv_info_number(kept.copy, "ID"), 7);
  EXPECT_STREQ(qv_info_text(kept.copy, "ID"), "7");
  EXPECT_EQ(qv_info_text(kept.copy, "own"), nullptr);
  EXPECT_THAT(taken(qv_info_json(kept.copy)), HasSubstr(R"("content":{},"data":"<MutableURLReq)"));
  const std::string deepText =
      std::string(Value::kMaximumDepth, '[') + "null" + std::string(Value::kMaximumDepth, ']');
  EXPECT_EQ(taken(qv_info_json(kept.request)),
            R"({"bytes":"<78>","deep":)" + deepText +
                R"(,"nan":null,"own":[1.5,true,null,"ä"],"url":"http://h/\"\u000a","when":2})");
  EXPECT_EQ(qv_info_set_flag(kept.request, "own", 5), QV_OK);
  EXPECT_EQ(qv_info_set_number(kept.request, "when", 0.25), QV_OK);
  EXPECT_STREQ(qv_info_text(kept.request, "own"), "1");
  EXPECT_EQ(qv_info_number(kept.request, "when"), 0.25);
  qv_info_free(kept.request);
  qv_info_free(kept.copy);
}

TEST_F(QVCInterfaceTest, EndsAListenerWhenNoCallOfItIsUnderWay) {
  struct Shared {
    std::atomic<int> calls = 0;
    std::atomic<int> isInside = 0;
    std::atomic<bool> isEnded = false;
    std::atomic<bool> wasLate = false;
  } shared;
  const auto hear = [](const char*, const qv_info*, void* user) {
    auto& at = *static_cast<Shared*>(user);
    ++at.calls;
    ++at.isInside;
    if (at.isEnded) at.wasLate = true;
    std::this_thread::yield();
    --at.isInside;
  };
  std::atomic<bool> isOver = false;
  std::jthread poster([&] {
    while (!isOver) qv_post("n", nullptr);
  });
  for (int i = 0; i < 50; ++i) {
    shared.isEnded = false;
    const int before = shared.calls;
    const long listener = qv_listen("n", hear, &shared);
    EXPECT_TRUE(waitUntil([&] { return shared.calls > before; }));
    EXPECT_EQ(qv_unlisten(listener), QV_OK);
    shared.isEnded = true;
    EXPECT_EQ(shared.isInside, 0);
    EXPECT_EQ(qv_unlisten(listener), QV_INVALID);
  }
  isOver = true;
  poster.join();
  EXPECT_FALSE(shared.wasLate);
}

TEST_F(QVCInterfaceTest, EndsALogSinkWhenNoCallOfItIsUnderWay) {
  struct Shared {
    std::latch isEntered{1};
    std::atomic<bool> isOver = false;
  } shared;
  const auto take = [](const char*, int, void* user) {
    auto& at = *static_cast<Shared*>(user);
    at.isEntered.count_down();
    std::this_thread::sleep_for(50ms);
    at.isOver = true;
  };
  EXPECT_EQ(qv_set_log_sink(take, &shared), QV_OK);
  const std::jthread logger([] { consoleLog("a line"); });
  shared.isEntered.wait();
  EXPECT_EQ(qv_set_log_sink(nullptr, nullptr), QV_OK);
  EXPECT_TRUE(shared.isOver);
}

TEST_F(QVCInterfaceTest, SetsAndLooksUp) {
  std::ofstream(container.path() / "menu.json")
      << R"({"version": 3, "list": {"name": "caf\u00e9", "on": true}})";
  ASSERT_EQ(qv_set_resource_directory(container.path().c_str()), QV_OK);
  ASSERT_EQ(qv_start(), QV_OK);
  for (const int setting : {QV_LOG_LEVEL, QV_LOG_NOTIFICATIONS, QV_BLOCK_HITS, QV_OWN_WEB_ENGINE,
                            QV_SEND_IN_BACKGROUND}) {
    for (const int wanted : {1, 0}) {
      int value = -1;
      EXPECT_EQ(qv_set(setting, wanted), QV_OK);
      EXPECT_EQ(qv_get(setting, &value), QV_OK);
      EXPECT_EQ(value, wanted) << setting;
    }
  }
  qv_set(QV_LOG_LEVEL, 2);
  const auto log = [] { qv_log("heard", 2), qv_log("passed over", 1), consoleLog("wrong"); };
  EXPECT_EQ(printed(log), "heard\n");
  std::string told;
  const auto take = [](const char* line, int level, void* user) {
    static_cast<std::string*>(user)->append(line).append(std::to_string(level));
  };
  EXPECT_EQ(qv_set_log_sink(take, &told), QV_OK);
  EXPECT_EQ(printed(log), "");
  EXPECT_EQ(qv_set_log_sink(nullptr, nullptr), QV_OK);
  EXPECT_EQ(printed(log), "heard\n");
  EXPECT_EQ(told, "heard2wrong-1");
  EXPECT_EQ(qv_set_queue_limits(10, 20), QV_OK);
  EXPECT_EQ(QVNetworkManager::sharedInstance()->maxRequestsInQueue(), 20U);
  EXPECT_EQ(qv_set_variable("#OWN#", "x"), QV_OK);
  EXPECT_EQ(taken(qv_variable("#OWN#")), "x");
  EXPECT_EQ(qv_set_variable("#OWN#", nullptr), QV_OK);
  EXPECT_EQ(taken(qv_variable("#OWN#")), "NULL");
  EXPECT_EQ(taken(qv_variable(QV_VARIABLE_SDK_ID)).size(), 36U);
  EXPECT_EQ(qv_set_account(1, 2), QV_OK);
  EXPECT_EQ(qv_add_configuration("menu", "version", "http://127.0.0.1:1/"), QV_OK);
  EXPECT_EQ(taken(qv_configuration_text("menu", "list/name")), "café");
  EXPECT_EQ(taken(qv_configuration_text("menu", "list/on")), "1");
  EXPECT_EQ(taken(qv_configuration_text("menu", "list")), "NULL");
  EXPECT_EQ(taken(qv_configuration_json("menu", "list")), R"({"name":"café","on":true})");
  EXPECT_EQ(taken(qv_configuration_json("menu", "none")), "\"0\"");
  EXPECT_EQ(taken(qv_configuration_json("none", nullptr)), "NULL");
  EXPECT_EQ(taken(qv_configuration_json("menu", "\xff")), "NULL");
}

TEST_F(QVCInterfaceTest, HoldsHitsForConsentAndSavesThem) {
  ASSERT_EQ(qv_assume_network(), QV_OK);
  ASSERT_EQ(qv_expect_consent(), QV_OK);
  ASSERT_EQ(qv_start(), QV_OK);
  ASSERT_EQ(qv_save_at_each_change(), QV_OK);
  manager = QVNetworkManager::sharedInstance();
  EXPECT_TRUE(manager->isInternetReachable() && hitsAreHeld());
  const auto file = container.path() / "Library/QVPrivateDocuments/offlineHits";
  EXPECT_EQ(qv_send("http://h/", nullptr), QV_OK);
  EXPECT_TRUE(std::filesystem::remove(file));
  EXPECT_EQ(qv_save(), QV_OK);
  EXPECT_TRUE(std::filesystem::exists(file));
  EXPECT_EQ(qv_send("http://h/", nullptr), QV_OK);
  int saved = 0;
  EXPECT_EQ(qv_shutdown(1000, &saved), QV_OK);
  EXPECT_EQ(saved, 2);
  EXPECT_EQ(qv_erase_everything(), QV_OK);
  EXPECT_EQ(taken(qv_variable(QV_VARIABLE_SDK_ID)), "NULL");
  EXPECT_EQ(qv_post(QV_NAME_STOPPING_THE_SDK, nullptr), QV_OK);
  EXPECT_EQ(manager->managerState(), QVManagerStateStopped);
}

TEST_F(QVCInterfaceTest, TellsThatAHitIsUnderWayAtTheEnd) {
  std::binary_semaphore isAsked(0), mayAnswer(0);
  const HTTPServer server([&](const httplib::Request&, httplib::Response&) {
    isAsked.release();
    mayAnswer.acquire();
  });
  ASSERT_EQ(qv_start(), QV_OK);
  EXPECT_EQ(qv_send(server.url().c_str(), nullptr), QV_OK);
  isAsked.acquire();
  EXPECT_EQ(qv_shutdown(0, nullptr), QV_UNDER_WAY);
  mayAnswer.release();
  EXPECT_EQ(qv_shutdown(10'000, nullptr), QV_OK);
}

TEST_F(QVCInterfaceTest, TakesNothingAndGarbageForAnyArgument) {
  ASSERT_EQ(setenv("XDG_DATA_HOME", container.path().c_str(), 1), 0);
  const auto ignore = [](const char*, const qv_info*, void*) {};
  qv_info* const info = qv_info_new();
  ASSERT_EQ(qv_start(), QV_OK);
  using Call = std::function<long(const char*)>;
  const Call optional[] = {qv_set_identifier,
                           qv_set_container_directory,
                           qv_set_resource_directory,
                           qv_set_configuration_host,
                           [](auto text) { return qv_set_variable("#V#", text); },
                           [](auto text) { return qv_send("http://h/", text); },
                           [](auto text) { return qv_add_configuration("c", text, "http://h/"); },
                           [](auto text) { return qv_add_configuration("c", "v", text); },
                           [info](auto text) { return qv_info_set_text(info, "own", text); }};
  const Call needed[] = {qv_add_partner,
                         [](auto text) { return qv_send(text, nullptr); },
                         [info](auto text) { return qv_post(text, info); },
                         [&](auto text) { return qv_listen(text, ignore, nullptr); },
                         [](auto text) { return qv_set_variable(text, "x"); },
                         [](auto text) { return qv_set_variable(text, nullptr); },
                         [](auto text) { return qv_add_configuration(text, nullptr, nullptr); },
                         [](auto text) { return qv_log(text, 0); },
                         [info](auto text) { return qv_info_set_text(info, text, "x"); },
                         [info](auto text) { return qv_info_set_number(info, text, 1); },
                         [info](auto text) { return qv_info_set_flag(info, text, 1); }};
  const std::string bytes(1 << 16, '\x80');
  for (const char* malformed : {"\xff", "a\xc3", bytes.c_str()}) {
    for (const auto& call : optional) EXPECT_EQ(call(malformed), QV_INVALID);
    for (const auto& call : needed) EXPECT_EQ(call(malformed), QV_INVALID);
    EXPECT_EQ(taken(qv_variable(malformed)) + taken(qv_configuration_text(malformed, nullptr)),
              "NULLNULL");
    EXPECT_EQ(qv_info_text(info, malformed), nullptr);
    EXPECT_EQ(qv_info_number(info, malformed), 0);
  }
  for (const auto& call : optional) EXPECT_EQ(call(nullptr), QV_OK);
  for (const auto& call : needed) EXPECT_EQ(call(nullptr), QV_INVALID);
  int value = 7;
  for (const int number : {INT_MIN, -1, 0, 6, INT_MAX}) {
    EXPECT_EQ(qv_set(number, 1) + qv_get(number, &value) + qv_unlisten(number), 3 * QV_INVALID);
  }
  EXPECT_EQ(qv_get(QV_LOG_LEVEL, nullptr) + qv_set_queue_limits(-1, 1) + qv_shutdown(-1, &value),
            3 * QV_INVALID);
  EXPECT_EQ(qv_listen("n", nullptr, nullptr), QV_INVALID);
  EXPECT_EQ(qv_info_set_text(nullptr, "k", "x") + qv_info_set_flag(nullptr, "k", 1),
            2 * QV_INVALID);
  EXPECT_FALSE(qv_info_copy(nullptr) || qv_info_request(nullptr) || qv_info_json(nullptr));
  EXPECT_FALSE(qv_info_text(nullptr, "k") || qv_info_text(info, nullptr));
  EXPECT_EQ(qv_info_number(nullptr, "k") + qv_info_status(nullptr) + value, 7);
  qv_info_free(info);
  qv_info_free(nullptr);
  qv_free(nullptr);
}

TEST_F(QVCInterfaceTest, LetsNoExceptionOut) {
  const auto thrower = [](const char*, const qv_info*, void*) { throw std::runtime_error("mine"); };
  ASSERT_GT(qv_listen("n", thrower, nullptr), 0);
  EXPECT_EQ(qv_post("n", nullptr), QV_FAILED);
  Device::setIdentifierForVendorProvider([]() -> String { throw 1; });
  EXPECT_NO_THROW(qv_start());
}

}  // namespace
