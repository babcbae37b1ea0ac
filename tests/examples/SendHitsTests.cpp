#include "tests/support/HTTPServer.h"
#include "tests/support/Program.h"
#include "tests/support/RawServer.h"
#include "tests/support/Test.h"

namespace {

constexpr int kAllAnswered = 0;
constexpr int kSomeNotAnswered = 1;
constexpr int kUnreadable = 2;

class SendHitsTest : public ::testing::Test {
 protected:
  std::string writeInput(const std::string& text) const {
    std::string path = directory.path() / "input";
    putFile(path, text);
    return path;
  }
  std::vector<std::string> arguments(std::vector<std::string> more) const {
    more.insert(more.begin(), {"--container", directory.path() / "container"});
    return more;
  }

  TemporaryDirectory directory;
};

void answer(const httplib::Request& request, httplib::Response& response) {
  response.status = request.path == "/missing" ? 404 : 200;
  response.set_content("at " + request.path, "text/plain");
}

TEST_F(SendHitsTest, TellsAnswersFromFailuresByNumberAndLine) {
  const HTTPServer server(answer);
  const auto input =
      writeInput(server.url("/one") + "\n" + server.url("/two") + "\tsome text\n" + "no address\n" +
                 server.url("/missing") + "\n" + server.url("/three") + "\n");
  Program program(SEND_HITS, arguments({"--assume-network", input}));
  EXPECT_EQ(program.finish(), kSomeNotAnswered);
  for (const char* line :
       {"#0 line 1 answered: at /one\n", "#1 line 2 answered: at /two\n",
        "#2 line 3 failed: Error : invalid URL\n", "#3 line 4 failed: status 404\n",
        "#4 line 5 answered: at /three\n", "5 sent, 3 answered, 2 failed\n"}) {
    EXPECT_THAT(program.printed(), HasSubstr(line));
  }
  const auto requests = server.requests();
  ASSERT_EQ(requests.size(), 4U);
  EXPECT_EQ(requests[0].method, "GET");
  EXPECT_EQ(requests[1].method, "POST");
  EXPECT_EQ(requests[1].body, "some text");
}

TEST_F(SendHitsTest, ReadsEveryKindOfLine) {
  const HTTPServer server;
  const std::string url = server.url("/hit");
  const std::string tooLong = server.url("/" + std::string(3U << 20, 'x'));
  const struct {
    const char* what;
    std::string input;
    int status;
    const char* summary;
    std::size_t requests;
    const char* remark;  // what else it says; empty for nothing in particular
  } kCases[] = {
      {"no input", "", kAllAnswered, "0 sent, 0 answered", 0, ""},
      {"last line without an end", url + "\n" + url, kAllAnswered, "2 sent, 2 answered", 2, ""},
      {"CRLF", url + "\r\n" + url + "\r\n", kAllAnswered, "2 sent, 2 answered", 2, ""},
      {"empty lines", "\n\r\n" + url + "\n\n", kAllAnswered, "1 sent, 1 answered", 1,
       "3 empty lines"},
      {"an empty body", url + "\t\n", kAllAnswered, "1 sent, 1 answered", 1, ""},
      {"not UTF-8", url + "\n\xC3(\n" + url + "\tbad \xFF\n" + url + "\n", kSomeNotAnswered,
       "2 sent, 2 answered", 2, "2 lines that are not UTF-8 or too long, the first of them line 2"},
      {"too long", tooLong + "\n" + url + "\n", kSomeNotAnswered, "1 sent, 1 answered", 1,
       "1 lines that are not UTF-8 or too long, the first of them line 1"},
      {"too long at the end", url + "\n" + tooLong, kSomeNotAnswered, "1 sent, 1 answered", 1,
       "the first of them line 2"},
  };
  std::size_t before = 0;
  for (const auto& test : kCases) {
    SCOPED_TRACE(test.what);
    Program program(SEND_HITS, arguments({"--assume-network", "--quiet", writeInput(test.input)}));
    EXPECT_EQ(program.finish(), test.status);
    EXPECT_THAT(program.printed(), HasSubstr(test.summary));
    EXPECT_THAT(program.printed(), HasSubstr(test.remark));
    EXPECT_THAT(program.printed(), Not(HasSubstr("line 1 ")));  // quiet
    EXPECT_EQ(server.requests().size() - before, test.requests);
    before = server.requests().size();
  }
}

TEST_F(SendHitsTest, RefusesWhatItCannotRead) {
  for (const auto& wrong : std::vector<std::vector<std::string>>{
           {directory.path() / "missing"}, {directory.path()}, {"--no-such-option"}, {"a", "b"}}) {
    Program program(SEND_HITS, arguments(wrong));
    EXPECT_EQ(program.finish(), kUnreadable) << program.printed();
  }
}

TEST_F(SendHitsTest, EndsAtOnceWhenInterrupted) {
  const RawServer server([](RawServer::Connection& connection) {
    if (connection.readRequest().find("/first") != std::string::npos) {
      connection.send("HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\ndone");
    }
    connection.waitForClose();  // no answer to the second
  });
  const auto input = writeInput(server.url("/first") + "\n" + server.url("/second") + "\n");
  Program program(SEND_HITS, arguments({"--assume-network", input}));
  ASSERT_TRUE(program.waitForOutput("line 1 answered: done")) << program.printed();
  program.signal(SIGINT);
  EXPECT_EQ(program.finish(), kSomeNotAnswered);
  EXPECT_THAT(program.printed(), HasSubstr("Interrupted.\n2 sent, 1 answered, 0 failed\n"));
  EXPECT_THAT(program.printed(), HasSubstr("1 without an outcome"));
}

TEST_F(SendHitsTest, SaysThatHitsWaitForTheNetwork) {
  auto command = arguments({writeInput("http://127.0.0.1:9/\n")});
  command.insert(command.begin(), {"--net", SEND_HITS});
  if (geteuid() != 0) command.insert(command.begin(), "--map-root-user");
  Program program("/usr/bin/unshare", command);
  if (!program.waitForOutput("hits wait until there is")) {
    ASSERT_THAT(program.printed(), HasSubstr("unshare"));
    GTEST_SKIP() << "no right to make a network namespace";
  }
  program.signal(SIGINT);
  EXPECT_EQ(program.finish(), kSomeNotAnswered);
  EXPECT_THAT(program.printed(), HasSubstr("0 answered"));
}

TEST_F(SendHitsTest, PassesOverHitsOfAnEarlierRun) {
  const HTTPServer server(answer);
  const std::filesystem::path library = directory.path() / "container/Library/QVPrivateDocuments";
  std::filesystem::create_directories(library);
  KeyedArchiver archiver;
  archiver.encodeObjectForKey(Array{Dictionary{{"url", server.url("/old")},
                                               {"RequestType", "QVNotification: HTTP Response"},
                                               {"ID", 7}}},
                              "offlineHits");
  ASSERT_TRUE(
      FileManager::writeAtomically(archiver.finishEncoding(), (library / "offlineHits").string()));
  Program program(SEND_HITS,
                  arguments({"--assume-network", writeInput(server.url("/new") + "\n")}));
  EXPECT_EQ(program.finish(), kAllAnswered);
  EXPECT_THAT(program.printed(), HasSubstr("1 sent, 1 answered, 0 failed"));
  EXPECT_EQ(server.requests().size(), 2U);
}

TEST_F(SendHitsTest, NeedsNoMoreMemoryForMoreHits) {
  if (kHasAddressSanitizer || kHasThreadSanitizer) GTEST_SKIP() << "it keeps what a program frees";
  const char* number = std::getenv("SEND_HITS_COUNT");  // for a run with millions
  const int counts[2] = {2'000, number == nullptr ? 20'000 : std::atoi(number)};
  const RawServer server([](RawServer::Connection& connection) {
    while (!connection.readRequest().empty()) {
      connection.send("HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nok");
    }
  });
  long peaks[2];
  for (int run = 0; run < 2; ++run) {
    std::ofstream file(directory.path() / "many");
    for (int hit = 0; hit < counts[run]; ++hit)
      file << server.url("/hit") << "\tnumber=" << hit << "\n";
    file.close();
    Program program(SEND_HITS,
                    arguments({"--assume-network", "--quiet", directory.path() / "many"}));
    EXPECT_EQ(program.finish(), kAllAnswered) << program.printed();
    const auto told = stringWithFormat("%@ sent, %@ answered", {counts[run], counts[run]});
    EXPECT_THAT(program.printed(), HasSubstr(told.UTF8String()));
    peaks[run] = program.peakKilobytes();
  }
  RecordProperty("peak_kilobytes_few", std::to_string(peaks[0]));
  RecordProperty("peak_kilobytes_many", std::to_string(peaks[1]));
  EXPECT_LT(peaks[1], peaks[0] + 2048);
}

}  // namespace
