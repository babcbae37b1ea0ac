#include "fuzz/ConfigurationUpdateFuzzer.h"
#include "fuzz/JSONFuzzer.h"
#include "tests/support/ConfigurationTest.h"
#include "tests/support/Test.h"

namespace {

/// Hands every file of the directory below fuzz/corpus to a fuzzer's function, which aborts when
/// something is wrong.
void replay(const std::string& corpus, void (*function)(std::string_view)) {
  int count = 0;
  const auto directory = std::filesystem::path(__FILE__).parent_path() / "../fuzz/corpus" / corpus;
  for (const auto& entry : std::filesystem::directory_iterator(directory)) {
    SCOPED_TRACE(entry.path());
    std::ifstream file(entry.path(), std::ios::binary);
    function(std::string(std::istreambuf_iterator<char>(file), {}));
    ++count;
  }
  EXPECT_GT(count, 0) << "nothing in " << directory;
}

using FuzzCorpus = QVTest::ConfigurationTest;

TEST_F(FuzzCorpus, OfJSONIsReadInBothWaysAlike) { replay("json", QVFuzz::readJSON); }

TEST_F(FuzzCorpus, OfConfigurationUpdatesKeepsTheHigherVersion) {
  QVDebug::setDebugLevel(6);
  replay("configuration", QVFuzz::updateConfiguration);
}

}  // namespace
