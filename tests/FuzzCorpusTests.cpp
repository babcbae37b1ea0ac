#include "fuzz/AnswerFuzzer.h"
#include "fuzz/ArchiveFuzzer.h"
#include "fuzz/CInterfaceFuzzer.h"
#include "fuzz/ConfigurationUpdateFuzzer.h"
#include "fuzz/JSONFuzzer.h"
#include "fuzz/TextFuzzer.h"
#include "tests/support/ConfigurationTest.h"
#include "tests/support/RawServer.h"
#include "tests/support/Test.h"

namespace {

/// Hands every file of the directory below fuzz/corpus to a fuzzer's function, which aborts when
/// something is wrong.
void replay(const std::string& corpus, void (*function)(std::string_view)) {
  int count = 0;
  const auto directory = std::filesystem::path(__FILE__).parent_path() / "../fuzz/corpus" / corpus;
  for (const auto& entry : std::filesystem::directory_iterator(directory)) {
    SCOPED_TRACE(entry.path());
    function(contentsOf(entry.path()));
    ++count;
  }
  EXPECT_GT(count, 0) << "nothing in " << directory;
}

using FuzzCorpus = ConfigurationTest;

TEST_F(FuzzCorpus, OfArchivesStaysHarmless) { replay("archive", QVFuzz::readArchive); }

TEST_F(FuzzCorpus, OfJSONIsReadInBothWaysAlike) { replay("json", QVFuzz::readJSON); }

TEST_F(FuzzCorpus, OfTheCInterfaceIsHeardAndReadAsItWasPosted) { replay("c", QVFuzz::postFromC); }

TEST_F(FuzzCorpus, OfConfigurationUpdatesKeepsTheHigherVersion) {
  QVDebug::setDebugLevel(6);
  replay("configuration", QVFuzz::updateConfiguration);
}

TEST_F(FuzzCorpus, OfTextsIsReadAsASecondOpinionHasIt) {
  QVDebug::setDebugLevel(6);
  replay("text", QVFuzz::readText);
}

TEST_F(FuzzCorpus, OfAnswersLeavesTheNextOneRight) {
  replay("answer", [](std::string_view answer) {
    const RawServer server([answer](RawServer::Connection& connection) {
      const bool isGood = connection.readRequest().starts_with("GET /good ");
      connection.send(isGood ? QVFuzz::kGoodAnswer : answer);
    });
    QVFuzz::readAnswers(server.url(""));
  });
}

TEST(ArchiveFuzzer, FindsNoHarmInAnyPartOfAFileNorInAFileWithAnyBitTurned) {
  const Value value =
      Array({"text", "\u00e9", 70000, -1, 1.5, Date{5}, Data("bytes"),
             Dictionary({{"key", Array({true, "text"})}}), Dictionary({{"key", 1}})});
  KeyedArchiver archiver;
  archiver.encodeObjectForKey(value, "root");
  for (const Data& file : {PropertyList::dataWithValue(value), archiver.finishEncoding()}) {
    const std::string whole(file.view());
    for (std::size_t length = 0; length < whole.size(); ++length) {
      const std::string part = whole.substr(0, length);
      EXPECT_TRUE(PropertyList::valueWithData(part).isNil()) << length;
      EXPECT_FALSE(KeyedUnarchiver(Data(part)).isValid()) << length;
    }
    for (std::size_t bit = 0; bit < 8 * whole.size(); ++bit) {
      std::string damaged = whole;
      damaged[bit / 8] ^= static_cast<char>(1U << bit % 8);
      QVFuzz::readArchive(damaged);
    }
  }
}

}  // namespace
