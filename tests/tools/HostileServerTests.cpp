#include <httplib.h>

#include "tests/support/CoreTest.h"
#include "tests/support/Program.h"
#include "tests/support/Test.h"

namespace {

class HostileServerTest : public CoreTest {
 protected:
  HostileServerTest() {
    QVDebug::setDebugLevel(6);
    QVDebug::useCustomWKProcessPool(true);  // no user agent is sought
    kit->init();
  }

  /// What comes of a hit: the answer's content, or nil of an error. Fails if nothing comes.
  Value outcomeOf(const std::string& target) {
    const Recorder outcomes({kQVNotification_HTTPResponse, kQVNotification_HTTPRequestError});
    post(kQVNotification_HTTPRequest, {{kQVUserInfo_URLKey, server.firstLine() + target}});
    const auto heard = outcomes.waitFor(1);
    EXPECT_THAT(heard, SizeIs(1)) << target;
    if (heard.empty() || heard[0].name() == kQVNotification_HTTPRequestError) return nullptr;
    return heard[0].userInfo().get(kQVUserInfo_ContentKey);
  }

  Program server{QV_HOSTILE_SERVER, {}};
  const std::shared_ptr<QVCoreInitialisation> kit = std::make_shared<QVCoreInitialisation>();
};

TEST_F(HostileServerTest, EachAttackComesToItsEndAndTheNextHitIsAnsweredRightly) {
  const std::string list(outcomeOf("/").string().view());
  const std::vector<std::string> attacks = words(list);
  ASSERT_GT(attacks.size(), 400U);
  for (std::size_t i = 0; i < attacks.size(); i += 2) {
    const bool lasts = attacks[i].starts_with("/endless") || attacks[i].starts_with("/silence");
    URLConnection::setMaximumTransferTime(lasts ? 1 : 600);
    const Value outcome = outcomeOf(attacks[i]);
    URLConnection::setMaximumTransferTime(600);
    EXPECT_TRUE(httplib::Client(server.firstLine()).Get("/settled"));
    const std::string& verdict = attacks[i + 1];
    const bool isRight =
        verdict == "either" || outcome == (verdict == "error" ? Value() : Value("whole"));
    EXPECT_TRUE(isRight) << attacks[i] << " made " << outcome.string().view().substr(0, 100);
    const std::string number = std::to_string(i);
    EXPECT_EQ(outcomeOf("/good/" + number), Value(number)) << "behind " << attacks[i];
  }
}

}  // namespace
