#include "fuzz/ArchiveFuzzer.h"
#include "tests/support/Test.h"

namespace {

/// Each input that a fuzzer ever stumbled over stays harmless; a failure ends the process.
TEST(ArchiveFuzzer, RunsItsCorpus) {
  const auto corpus =
      std::filesystem::path(__FILE__).parent_path().parent_path() / "fuzz/corpus/archive";
  int inputs = 0;
  for (const auto& file : std::filesystem::directory_iterator(corpus)) {
    SCOPED_TRACE(file.path().string());
    QVFuzz::readArchive(QVTest::contentsOf(file.path()));
    ++inputs;
  }
  EXPECT_GE(inputs, 8);
}

}  // namespace
