#include "pages/consent.h"
#include "tests/support/HTTPServer.h"
#include "tests/support/NetworkManagerTest.h"
#include "tests/support/Test.h"

namespace {

/// The module of docs/consent.md, which is there before the kit starts.
class QVConsentTest : public NetworkManagerTest {
 protected:
  /// A word for what happens, else the path of a hit that is posted.
  void happen(const std::string& step, const HTTPServer& server) const {
    if (step == "yes") return consent::accept();
    if (step == "no") return consent::refuse();
    if (step == "again") return consent::acceptAfterRefusal();
    if (step == "sent") return static_cast<void>(waitUntil([this] { return queued().empty(); }));
    if (step == "start") return static_cast<void>(manager->reinit());
    if (step == "background") return post(kQVNotification_OnBackground);
    if (step == "down") return post(kQVNotification_InternetDown);
    if (step != "events") return request({{"url", server.url("/" + step)}});
    for (const auto& name :
         {kQVNotification_InternetDown, kQVNotification_InternetUp, kQVNotification_OnBackground,
          kQVNotification_OnForeground, kQVNotification_UserAgentAvailable}) {
      post(name);
    }
  }
};

TEST_F(QVConsentTest, LetsOutWhatWasAgreedToAndNothingElse) {
  manager = QVNetworkManager::sharedInstance();
  const std::pair<const char*, std::string> rows[] = {
      {"a events", ""},
      {"a background start events b events", ""},
      {"a background start b yes c", "/a/b/c"},
      {"a yes b sent events c", "/a/b/c"},
      {"a no b events", ""},
      {"a no b background start no c events", ""},
      {"a background no start yes b", "/b"},
      {"yes down a no start yes b", "/b"},
      {"a no b events again c", "/c"},
      {"a no b background start no again c", "/c"},
      {"a yes b sent no c events", "/a/b"},
      {"yes a sent no b events again c", "/a/c"},
  };
  for (const auto& [steps, expected] : rows) {
    std::filesystem::remove_all(container.path() / "Library");
    manager->reinit();
    const HTTPServer server;
    for (const auto& step : words(steps)) happen(step, server);
    server.waitForRequests(expected.size() / 2);
    EXPECT_TRUE(manager->shutdownWithin(10s).isIdle);
    std::string sent;
    for (const auto& hit : server.requests()) sent += hit.target;
    EXPECT_EQ(sent, expected) << steps;
  }
}

}  // namespace
