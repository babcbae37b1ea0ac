#include "tests/support/HTTPServer.h"
#include "tests/support/Program.h"
#include "tests/support/RawServer.h"
#include "tests/support/Test.h"

namespace {

/// One program for each kind of loop that this build has.
const std::vector<std::string> kPrograms{MAIN_LOOPS};

TEST(MainLoopTest, EachDrainsTheQueueAndSavesWhatWaitsWhenItIsTerminated) {
  for (const std::string& path : kPrograms) {
    SCOPED_TRACE(path);
    const TemporaryDirectory data;
    setenv("XDG_DATA_HOME", data.path().c_str(), 1);
    std::mutex mutex;
    std::vector<std::string> targets;
    std::promise<void> isAsked;
    const RawServer server([&](RawServer::Connection& connection) {
      for (std::string request; !(request = connection.readRequest()).empty();) {
        const std::lock_guard lock(mutex);
        targets.push_back(request.substr(4, request.find(' ', 4) - 4));
        if (targets.size() == 1)
          isAsked.set_value();
        else
          connection.send("HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nok");
      }
    });
    Program terminated(path, {server.url("/first"), "--assume-network"});
    isAsked.get_future().wait();
    terminated.signal(SIGTERM);
    EXPECT_EQ(terminated.finish(), 1) << terminated.printed();
    Program next(path, {server.url("/second"), "--assume-network"});
    EXPECT_EQ(next.finish(), 0);
    EXPECT_THAT(next.printed(), HasSubstr("answered: " + server.url("/second")));
    const std::lock_guard lock(mutex);
    EXPECT_THAT(targets, ElementsAre("/first", "/first", "/second"));
  }
}

}  // namespace
