#include "fuzz/AnswerFuzzer.h"
#include "fuzz/ArchiveFuzzer.h"
#include "fuzz/CInterfaceFuzzer.h"
#include "fuzz/ConfigurationUpdateFuzzer.h"
#include "fuzz/JSONFuzzer.h"
#include "fuzz/TextFuzzer.h"
#include "fuzz/UserDefaultsFuzzer.h"
#include "tests/support/ConfigurationTest.h"
#include "tests/support/Test.h"

namespace {

const std::filesystem::path corpus = QV_CORPUS;

/// Hands every file of the corpus of that name to a fuzzer's function, which aborts when something
/// is wrong.
void replay(const char* name, void (*function)(std::string_view)) {
  int count = 0;
  const auto directory = corpus / name;
  for (const auto& entry : std::filesystem::directory_iterator(directory)) {
    SCOPED_TRACE(entry.path());
    function(contentsOf(entry.path()));
    ++count;
  }
  EXPECT_GT(count, 0) << "nothing in " << directory;
}

using FuzzCorpus = ConfigurationTest;

TEST_F(FuzzCorpus, OfArchivesStaysHarmless) { replay("Archive", QVFuzz::readArchive); }

TEST_F(FuzzCorpus, OfJSONIsReadInBothWaysAlike) { replay("JSON", QVFuzz::readJSON); }

TEST_F(FuzzCorpus, OfTheCInterfaceIsHeardAndReadAsItWasPosted) {
  replay("CInterface", QVFuzz::postFromC);
}

TEST_F(FuzzCorpus, OfUserDefaultsStaysAndTakesAValueMore) {
  replay("UserDefaults", QVFuzz::readUserDefaults);
}

TEST_F(FuzzCorpus, OfConfigurationUpdatesKeepsTheHigherVersion) {
  QVDebug::setDebugLevel(6);
  replay("ConfigurationUpdate", QVFuzz::updateConfiguration);
}

TEST_F(FuzzCorpus, OfTextsIsReadAsASecondOpinionHasIt) {
  QVDebug::setDebugLevel(6);
  replay("Text", QVFuzz::readText);
}

TEST_F(FuzzCorpus, OfAnswersLeavesTheNextOneRight) { replay("Answer", QVFuzz::readAnswers); }

/// A value of each kind as user defaults have it in their file, and as hits have it in theirs.
std::array<Data, 2> filesOfEachKind() {
  const Value value = Array(
      {"text", "\u00e9", 70000, -1, std::numeric_limits<std::int64_t>::max(), 1.5, Date{5},
       Data("bytes"), Dictionary({{"key", Array({true, "text"})}}), Dictionary({{"key", 1}})});
  KeyedArchiver archiver;
  archiver.encodeObjectForKey(value, "root");
  return {PropertyList::dataWithValue(value), archiver.finishEncoding()};
}

// Whatever a machine's byte order and word size, it writes the bytes that another one wrote.
TEST_F(FuzzCorpus, HasFilesThatEachMachineWritesAlike) {
  const auto files = filesOfEachKind();
  EXPECT_TRUE(files[0].view() == contentsOf(corpus / "Archive/defaults-of-each-kind"));
  EXPECT_TRUE(files[1].view() == contentsOf(corpus / "Archive/hits-of-each-kind"));
}

TEST(ArchiveFuzzer, FindsNoHarmInAnyPartOfAFileNorInAFileWithAnyBitTurned) {
  for (const Data& file : filesOfEachKind()) {
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
