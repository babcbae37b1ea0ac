#include <sys/resource.h>
#include <sys/syscall.h>

#include "pages/log.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/CoreTest.h"
#include "tests/support/HTTPServer.h"
#include "tests/support/Test.h"

namespace {

class QVLoggerTest : public CoreTest {
 protected:
  struct Sender : Object {
    String description() const override { return "sender"; }
  };

  static std::string printedFor(const String& name, const Dictionary& userInfo = nullptr) {
    const Notification notification(name, std::make_shared<Sender>(), userInfo);
    return printed([&] { NotificationCenter::defaultCenter()->postNotification(notification); });
  }

  const std::shared_ptr<QVLogger> logger = QVLogger::sharedInstance();
};

TEST_F(QVLoggerTest, ComparesLevelsAsUnsignedNumbersAndIsSilentAtSix) {
  const std::tuple<std::int32_t, std::int32_t, bool> cases[] = {
      {0, 0, true},  {2, 1, false},  {2, 2, true},   {6, 6, false}, {6, 7, false},
      {7, 6, false}, {-1, 5, false}, {-1, -1, true}, {2, -1, true}, {-2, -1, true}};
  for (const auto& [setting, level, isPrinted] : cases) {
    QVDebug::setDebugLevel(setting);
    EXPECT_EQ(QVDebug::getLogLevel(), setting);
    EXPECT_EQ(printed([this, at = level] { logger->logMessageWithLevel("x", at); }),
              isPrinted ? "x\n" : "")
        << setting << " " << level;
  }
}

TEST_F(QVLoggerTest, PrintsAnyObjectAsItsDescriptionWithNothingAround) {
  EXPECT_EQ(printed([&] { logger->logToConsole("100% %s %@"); }), "100% %s %@\n");
  EXPECT_EQ(printed([&] { logger->logToConsole(nullptr); }), "(null)\n");
  EXPECT_EQ(printed([&] { logger->logToConsole(7); }), "7\n");
  EXPECT_EQ(printed([&] { logger->logToConsole(logger); }).rfind("<QVLogger: 0x", 0), 0U);
}

/// What stands behind standard output is full or gone at once, and nobody reads it.
enum class Output {
  UnreadPipe,
  UnreadTerminal,
  ClosedPipe,
  FullFile,
  HeldByTheHost,  // this and the next: with bytes of the host's, for which exit() waits
  FilledByTheHost,
};

void replaceStandardOutput(Output output, const std::filesystem::path& file) {
  int ends[2];
  if (pipe(ends) != 0) std::abort();
  if (output == Output::ClosedPipe) close(ends[0]);
  if (output == Output::FullFile) {
    const rlimit limit{1000, 1000};
    setrlimit(RLIMIT_FSIZE, &limit);
    ends[1] = open(file.c_str(), O_WRONLY | O_CREAT, S_IRUSR | S_IWUSR);
  }
  if (output == Output::UnreadTerminal) {
    const int terminal = posix_openpt(O_RDWR | O_NOCTTY);
    if (grantpt(terminal) != 0 || unlockpt(terminal) != 0) std::abort();
    ends[1] = open(ptsname(terminal), O_WRONLY | O_NOCTTY);
  }
  dup2(ends[1], STDOUT_FILENO);
  if (output == Output::FilledByTheHost) {
    static std::array<char, 1 << 20> buffer;
    setvbuf(stdout, buffer.data(), _IOFBF, buffer.size());
    std::fwrite(buffer.data(), 1, buffer.size() / 4, stdout);
  }
  if (output != Output::HeldByTheHost) return;
  std::thread([] {
    for (;;) std::puts("the host's own line");
  }).detach();
}

TEST_F(QVLoggerTest, IsNeitherHeldNorEndedByItsOutput) {
  using enum Output;
  for (const Output output :
       {UnreadPipe, UnreadTerminal, ClosedPipe, FullFile, HeldByTheHost, FilledByTheHost}) {
    const auto printAndExit = [&] {
      alarm(20);
      replaceStandardOutput(output, container.path() / "output");
      for (int i = 0; i < 1000; ++i)
        post(kQVNotification_HitSent, {{"data", std::string(99, 'd')}});
      const String file((container.path() / "file").string());
      const bool isWritten = FileManager::writeAtomically(std::string(2000, 'x'), file);
      const int status = isWritten == (output != FullFile) ? 0 : 1;
      // What the host itself has printed exit() waits for; under ThreadSanitizer _exit() does, too.
      if (output >= HeldByTheHost) syscall(SYS_exit_group, status);
      std::exit(status);
      return status;
    };
    EXPECT_EQ(runInChild(printAndExit), 0) << static_cast<int>(output);
  }
}

TEST_F(QVLoggerTest, StandsInOrderWithWhatTheHostPrintsAndTellsWhatWasDropped) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  const std::string longLine(100000, 'l');
  testing::internal::CaptureStderr();
  EXPECT_EQ(printed([&] {
              const int captured = dup(STDOUT_FILENO);
              dup2(ends[1], STDOUT_FILENO);
              for (int i = 0; i < 3; ++i) logger->logToConsole(longLine);
              dup2(captured, STDOUT_FILENO);
              std::printf("before ");
              logger->logToConsole(longLine);
              std::printf("behind");
            }),
            "before " + longLine + "\nbehind");
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "QVCore: lines that nobody read in time were dropped: 3\n");
}

TEST_F(QVLoggerTest, TellsASinkEachLineAndItsLevelInPlaceOfPrintingIt) {
  std::vector<std::string> told;
  const auto log = [this] {
    consoleLog("one");
    logger->logMessageWithLevel("two", QVLogLevelTraffic);
    consoleLog("three");
  };
  EXPECT_TRUE(setLogSink([&](const LogLine& line) {
    told.push_back(std::to_string(line.level.value_or(-1)) + " " + line.text.UTF8String());
    EXPECT_EQ(line.output == LogOutput::kConsole, !line.level);
    consoleLog("its own");
    if (told.size() == 3) throw std::runtime_error("thrown");
  }));
  std::string outputs;
  const std::string errors = complaintsOf([&] { outputs = printed(log); });
  EXPECT_TRUE(setLogSink(nullptr));
  EXPECT_THAT(told, ElementsAre("-1 one", "2 two", "-1 three"));
  const std::string own = "QVCore: its own\n";
  EXPECT_EQ(outputs + errors, own + own + own + "QVCore: an exception was stopped: thrown\n");
  EXPECT_EQ(printed(log), "two\n");
}

/// A process that is killed has told all: no line waits in a buffer, whatever the output is.
TEST_F(QVLoggerTest, LeavesNoLineInABufferAndTellsTheJournalAsItsPageDoes) {
  ChildProcess child([this](int output) {
    for (const int file : {STDOUT_FILENO, STDERR_FILENO}) dup2(output, file);
    logger->logToConsole("told");
    logToJournal();
    consoleLog("a warning");
    logger->logToConsole("news");
    return pause();
  });
  EXPECT_TRUE(child.waitForOutput("news\n"));
  EXPECT_EQ(child.printed(), "told\n<4>a warning\n<7>news\n");
}

TEST_F(QVLoggerTest, SaysWhatTextItDropsAndWhyARequestFails) {
  QVDebug::useCustomWKProcessPool(true);
  const HTTPServer server([](const auto& asked, auto& response) {
    response.status = asked.path == "/404" ? 404 : 200;
    response.set_content("caf\xe9", "text/plain");
  });
  const std::pair<std::string, std::string> rows[] = {
      {"http://nosuchhost.invalid/",
       "Request 7 failed: Could not resolve host: nosuchhost.invalid"},
      {"http://127.0.0.1:1/", "Request 7 failed: Failed to connect to 127.0.0.1 port 1"},
      {server.url("/404"), "Request 7 failed: status 404\n"},
      {server.url(),
       "The answer to request 7 is no text in UTF-8: it is told without its 4 bytes"}};
  for (const auto& [url, line] : rows) {
    const auto operation = std::make_shared<QVHTTPOperation>();
    operation->initWithData({{"url", url}, {"ID", 7U}});
    EXPECT_THAT(printed([&] { operation->main(); }),
                AllOf(StartsWith(line), Not(HasSubstr("status 0"))));
  }
  EXPECT_THAT(printed([] {
                QVNetworkManager::sharedInstance();
                post(kQVNotification_HTTPRequest, {{"url", "bare"}});
              }),
              StartsWith("Request 0 was refused: its URL is not valid\n"));
  EXPECT_EQ(
      complaintsOf([] { EXPECT_TRUE(Value("caf\xe9\n" + std::string(70, 'x')).isNil()); }),
      "QVCore: text that is not UTF-8 was dropped: caf\\xe9\\x0a" + std::string(55, 'x') + "...\n");
}

TEST_F(QVLoggerTest, LogsHitsByUnescapedAddressOrElseByData) {
  EXPECT_EQ(printedFor(kQVNotification_HitSent, {{"url", "http://h/a%20b"}, {"data", "d"}}),
            "Hit sent: sender: http://h/a b\n");
  EXPECT_EQ(printedFor(kQVNotification_HitSent, {{"data", "a%20b"}}), "Hit sent: sender: a%20b\n");
  EXPECT_EQ(printedFor(kQVNotification_HitSent, {{"url", "%ff"}}), "Hit sent: sender: (null)\n");
  EXPECT_EQ(printedFor(kQVNotification_HitSent), "Hit sent: sender: (null)\n");
  EXPECT_EQ(printedFor(kQVNotification_HitSent, {{"url", 5}}), "Hit sent: sender: 5\n");
}

TEST_F(QVLoggerTest, TracesEighteenNamesAtLevelZeroAndTellsOfFourAtLevelTwo) {
  const std::pair<std::vector<String>, std::string> rows[] = {
      {{kQVNotification_HitSent}, "Hit sent: sender: a b\n"},
      {{kQVNotification_HTTPRequestError},
       "QVNotification: HTTP Request Error: ID: 3, Request Type: type, URL: a%20b\n"},
      {{kQVNotification_InternetUp}, "QVNotification: Internet Up\n"},
      {{kQVNotification_InternetDown}, "QVNotification: Internet Down\n"},
      {{kQVNotification_HTTPRequest, kQVNotification_HTTPRequestSent, kQVNotification_HTTPResponse,
        kQVNotification_SegmentRequest, kQVNotification_SegmentResponse,
        kQVNotification_ConfigurationRequest, kQVNotification_ConfigurationResponse,
        kQVNotification_InternetChanged, kQVNotification_UserAgentAvailable,
        kQVNotification_Unknown, kQVNotification_OnBackground, kQVNotification_OnForeground,
        kQVNotification_StartingTheSDK, kQVNotification_StoppingTheSDK},
       ""}};
  const Dictionary userInfo{{"ID", 3U}, {"RequestType", "type"}, {"url", "a%20b"}};
  for (const auto& [names, line] : rows) {
    for (const String& name : names) {
      const std::string trace = std::string(name.view()) + " | (sender)\n";
      const std::string expected[] = {trace + line, line, line, ""};
      for (int level = 0; level < 4; ++level) {
        EXPECT_EQ(logger->reinit(), logger);  // listens again after a stop, and traces no more
        QVDebug::setDebugLevel(level);
        if (level != 2) QVDebug::setNotificationLog(true);
        EXPECT_EQ(printedFor(name, userInfo), expected[level]) << name.view() << level;
      }
    }
  }
  QVDebug::setDebugLevel(0);
  QVDebug::setNotificationLog(true);
  EXPECT_EQ(printedFor(kQVNotification_HitSent, userInfo), "") << "the kit was stopped";
  logger->reinit();
  EXPECT_EQ(printedFor(kQVNotification_HTTPRequestError),
            "QVNotification: HTTP Request Error: ID: (null), Request Type: (null), URL: (null)\n");
  EXPECT_EQ(printedFor(kQVNotification_Unknown), "");
  EXPECT_EQ(printedFor(kQVNotification_InternetUp + String("x")), "");
}

TEST_F(QVLoggerTest, HearsEachKindOfLineAtItsLevel) {
  network->change(0);
  QVDebug::setDebugLevel(6);
  QVDebug::useCustomWKProcessPool(true);
  const auto manager = QVNetworkManager::sharedInstance();
  const auto file = std::make_shared<QVConfigurationFile>();
  file->setOfflineName("n");
  const auto operation = std::make_shared<QVHTTPOperation>();
  operation->initWithData({{"url", "http://127.0.0.1:1/"}, {"POSTData", "x"}});
  post(kQVNotification_HTTPRequest, {{"url", "http://h/"}});
  const std::tuple<std::int32_t, const char*, std::function<void()>> rows[] = {
      {1, "Saving 1 offline", [&] { manager->saveAllHits(); }},
      {1, "Restoring 1 offline",
       [&] {
         manager->saveAllHits();
         const auto full = manager->operationQueue();
         auto empty = std::make_shared<OperationQueue>();
         empty->setSuspended(true);
         manager->setOperationQueue(empty);
         manager->restoreStockedHit();
         manager->setOperationQueue(full);
       }},
      {2, " was refused: its URL",
       [] {
         post(kQVNotification_HTTPRequest, {{"url", "bare"}});
       }},
      {2, "Checking for update in", [&] { file->downloadConfigurationUpdate(); }},
      {2, "Couldn't find configuration n in assets: ", [&] { file->preSaveOfflineJSON(); }},
      {3, "Invalid value when", [] { QVUtils::nsNumberFromString(std::string(5000, '7')); }},
      {4, "Error configuration is empty", [&] { file->getJSONDictionary(); }},
      {4, "Error getting branch", [&] { file->getJsonLeafFromPath(nullptr, "a"); }},
      {4, "Either the offline", [&] { file->updateConfigurationFromOldConfToNew("{", "["); }},
      {4, "postData: ", [&] { operation->main(); }},
  };
  for (const auto& [level, start, action] : rows) {
    QVDebug::setDebugLevel(level);
    EXPECT_THAT(printed(action), HasSubstr(start));
    QVDebug::setDebugLevel(level + 1);
    EXPECT_THAT(printed(action), Not(HasSubstr(start)));
  }
}

TEST_F(QVLoggerTest, MakesThePrivateDirectoryForTheFirstFileAskedFor) {
  const std::string directory = (container.path() / "Library/QVPrivateDocuments").string();
  EXPECT_EQ(QVLogger::privateQVDirectory(), String(directory));
  EXPECT_TRUE(std::filesystem::is_empty(container.path()));
  EXPECT_EQ(logger->getPrivatePathToFile("offlineHits"), String(directory + "/offlineHits"));
  EXPECT_EQ(std::filesystem::status(directory).permissions(), std::filesystem::perms::owner_all);
}

}  // namespace
