#include <dlfcn.h>

#include "tests/support/CoreTest.h"
#include "tests/support/Test.h"

// The default web engine without WebKit: its library with other programs in the place of its own.

namespace {

namespace fs = std::filesystem;

struct Outcome {
  Value result;
  std::shared_ptr<Error> error;
  bool isOnMainThread;
};

/// A copy of the engine's library, beside which lies a shell script as the engine's program.
class WebEngineTest : public CoreTest {
 protected:
  void SetUp() override {
#ifndef QV_WEBKIT_LIBRARY
    if (std::getenv("CI")) FAIL() << "the default web engine was not built";
    GTEST_SKIP() << "the default web engine was not built: WebKitGTK is not installed";
#else
    const fs::path library = directory.path() / fs::path(QV_WEBKIT_LIBRARY).filename();
    fs::copy_file(QV_WEBKIT_LIBRARY, library);
    fs::create_directory(directory.path() / "QVWebKit");
    void* const handle = dlopen(library.c_str(), RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(handle, nullptr) << dlerror();
    const auto make = reinterpret_cast<WebEngine* (*)()>(dlsym(handle, "QVWebKitMakeEngine"));
    ASSERT_NE(make, nullptr) << dlerror();
    WebEngine::setEngine(std::shared_ptr<WebEngine>(make()));
#endif
  }

  void setProgram(const std::string& script) const {
    const fs::path path = directory.path() / "QVWebKit" / "QVWebKitProcess";
    fs::remove(path);
    std::ofstream(path) << "#!/bin/sh\n" << script << "\n";
    fs::permissions(path, fs::perms::owner_all);
  }
  /// Runs the main queue until the answer is there.
  static Outcome outcomeOf(const std::string& script) {
    std::optional<Outcome> outcome;
    WebEngine::engine()->makeWebView({})->evaluateJavaScript(
        script, [&](const Value& result, const std::shared_ptr<Error>& error) {
          outcome = {result, error, MainQueue::isMainThread()};
        });
    EXPECT_TRUE(runMainQueueUntil([&] { return outcome.has_value(); }));
    return outcome.value_or(Outcome{});
  }

  const TemporaryDirectory directory;
};

TEST_F(WebEngineTest, HandsOutWhatItsProgramAnswers) {
  const std::pair<const char*, Value> cases[] = {
      {"cat >/dev/null; printf 'tAgent/1'", "Agent/1"},
      {"printf t; cat", "the script"},
      {"printf t", ""},
      {"printf b1", true},
      {"printf b0", false},
      {"printf n-1.5e3", -1500.0},
      {"printf 0", nullptr},
      {"printf 't\\377'", nullptr},
      {"printf '?what'", nullptr},
      {"printf ttext >&1; printf noise >&2; kill -0 $$", "text"},
  };
  for (const auto& [program, result] : cases) {
    setProgram(program);
    const Outcome outcome = outcomeOf("the script");
    EXPECT_EQ(outcome.result, result) << program;
    EXPECT_EQ(outcome.error, nullptr) << program;
    EXPECT_TRUE(outcome.isOnMainThread);
  }
}

TEST_F(WebEngineTest, AnswersNilWhenItsProgramFailsHoweverThatMayBe) {
  const char* const cases[][2] = {
      {"printf ethere\\ is\\ no\\ display", "there is no display"},
      {"printf tAgent/1; kill -TRAP $$", "its program ended by signal 5"},
      {"exec kill -9 $$", "its program ended by signal 9"},
      {"exit 3", "its program ended with status 3"},
      {"exit 0", "its program said nothing"},
      {"exec yes", "its program ended by signal 13"},
  };
  for (const auto& [program, reason] : cases) {
    setProgram(program);
    const Outcome outcome = outcomeOf("1");
    EXPECT_TRUE(outcome.result.isNil()) << program;
    ASSERT_NE(outcome.error, nullptr) << program;
    EXPECT_EQ(outcome.error->localizedDescription().view(), reason);
    EXPECT_TRUE(outcome.isOnMainThread);
  }
  fs::remove_all(directory.path() / "QVWebKit");
  EXPECT_TRUE(outcomeOf("1").result.isNil());
}

TEST_F(WebEngineTest, SendsAScriptOfAnySizeAndSurvivesAProgramThatDoesNotReadIt) {
  const std::string script(std::size_t{1} << 18, 'x');
  setProgram("printf n; wc -c");
  EXPECT_EQ(outcomeOf(script).result, Value(262144.0));
  setProgram("exec <&-; printf tdeaf");
  EXPECT_EQ(outcomeOf(script).result, Value("deaf"));
}

TEST_F(WebEngineTest, KeepsTheApplicationsDescriptorsAndSignalsFromItsProgram) {
  constexpr int kDescriptor = 57;
  ASSERT_EQ(dup2(STDERR_FILENO, kDescriptor), kDescriptor);
  signal(SIGUSR1, SIG_IGN);
  setProgram("kill -USR1 $$; printf tunharmed");
  EXPECT_TRUE(outcomeOf("1").result.isNil()) << "the signal that is ignored here ends it";
  setProgram("printf t; test -e /proc/$$/fd/57 && printf open; printf end");
  EXPECT_EQ(outcomeOf("1").result, Value("end"));
  close(kDescriptor);
}

#ifdef QV_PLATFORM_LIBRARY
TEST(WebEngineLibraryTest, LeavesAProcessWithoutItWithoutAnEngineAndSaysSoOnce) {
  if (std::getenv("QV_TEST_WITHOUT_LIBRARY")) {  // in the process started below
    EXPECT_EQ(WebEngine::engine(), nullptr);
    EXPECT_EQ(WebEngine::engine(), nullptr);
    return;
  }
  // A copy of the platform's library, beside which no engine lies.
  const TemporaryDirectory alone;
  fs::copy_file(QV_PLATFORM_LIBRARY, alone.path() / QV_PLATFORM_SONAME);
  const std::string command = "QV_TEST_WITHOUT_LIBRARY=1 LD_LIBRARY_PATH=" + alone.path().string() +
                              " " + fs::read_symlink("/proc/self/exe").string() +
                              " --gtest_filter='WebEngineLibraryTest.*' 2>&1";
  const std::string text = outputOf(command);
  const std::string line = "QVCore: no web engine, hence no user agent: ";
  const std::size_t first = text.find(line);
  EXPECT_NE(first, std::string::npos) << text;
  EXPECT_EQ(text.find(line, first + 1), std::string::npos) << text;
}
#endif

}  // namespace
