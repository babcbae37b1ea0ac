#include <sys/resource.h>

#include "tests/support/Test.h"

namespace {

namespace fs = std::filesystem;

void useOtherPlaces() {
  setenv("HOME", "/nowhere", 1);
  unsetenv("XDG_DATA_HOME");
  fs::current_path("/");
}

/// In a copy of this program: tells its identifier, having lost its file, and makes its directory.
const bool isCopy = [] {
  if (std::getenv("QV_TEST_IS_COPY") == nullptr) return false;
  fs::remove(fs::read_symlink("/proc/self/exe"));
  rlimit files{};
  getrlimit(RLIMIT_NOFILE, &files);
  const rlimit none{0, files.rlim_max};
  setrlimit(RLIMIT_NOFILE, &none);  // this shall leave nothing behind
  Application::containerDirectory();
  setrlimit(RLIMIT_NOFILE, &files);
  const String container = Application::containerDirectory();
  useOtherPlaces();
  const bool isStable = Application::containerDirectory() == container;
  Application::makeLibraryDirectory();
  std::cout << Application::identifier().view() << (isStable ? "" : " moved") << std::flush;
  _exit(0);
}();

TEST(ApplicationTest, KeepsItsPlacesWhateverTheyAreCalledAndWhateverBecomesOfThem) {
  const struct {
    const char* variable;
    std::string directory;
    std::string below;
    std::string program;
    std::string identifier;
  } cases[] = {{"HOME", "home", ".local/share", "player", "player"},
               {"XDG_DATA_HOME", "data", "", "player (deleted)", "player (deleted)"},
               {"HOME", "caf\xe9", ".local/share", "play\xe9r", "play%E9r"},
               {"XDG_DATA_HOME", "caf\xe9/data", "", "player", "player"}};
  for (const auto& [variable, directory, below, program, identifier] : cases) {
    const QVTest::TemporaryDirectory places;
    const fs::path copy = places.path() / program;
    fs::copy_file("/proc/self/exe", copy);
    const fs::path home = places.path() / directory;
    const std::string output = QVTest::outputOf(
        "cd '" + places.path().string() + "' && unset XDG_DATA_HOME && QV_TEST_IS_COPY=1 " +
        variable + "='" + home.string() + "' '" + copy.string() + "'");
    EXPECT_EQ(output, identifier);
    EXPECT_TRUE(fs::is_directory(home / below / identifier / "Library")) << identifier;
    fs::remove_all(places.path() / directory.substr(0, directory.find('/')));
    EXPECT_TRUE(fs::is_empty(places.path())) << identifier;
  }
}

TEST(ApplicationTest, StaysBelowTheDataDirectoryWhateverTheIdentifier) {
  setenv("XDG_DATA_HOME", "/data/", 1);
  const struct {
    String identifier;
    String container;
  } cases[] = {{"org.example.player", "/data/org.example.player"},
               {"/x", "/data/-x"},
               {"../../x", "/data/..-..-x"},
               {".", "/data/.-"},
               {"..", "/data/..-"},
               {String(std::string_view("\0", 1)), "/data/-"},
               {"", "/data/ApplicationTests"}};
  for (const auto& [identifier, container] : cases) {
    Application::setIdentifier(identifier);
    EXPECT_EQ(Application::containerDirectory(), container);
    EXPECT_EQ(Application::libraryDirectory(), container + String("/Library"));
  }
}

TEST(ApplicationTest, TakesARelativeDirectoryFromWhereItIsSet) {
  const QVTest::TemporaryDirectory place;
  fs::current_path(place.path());
  Application::setContainerDirectory("box/");
  Application::setResourceDirectory("shipped");
  fs::create_directory("gone");
  fs::current_path("gone");
  fs::remove(place.path() / "gone");
  Application::setContainerDirectory("nowhere");
  useOtherPlaces();
  EXPECT_EQ(Application::libraryDirectory(), String((place.path() / "box/Library").string()));
  EXPECT_EQ(Application::resourceDirectory(), String((place.path() / "shipped").string()));
}

}  // namespace
