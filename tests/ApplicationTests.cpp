#include <pwd.h>
#include <sys/resource.h>

#include "tests/support/Test.h"

namespace {

namespace fs = std::filesystem;

void useOtherPlaces() {
  setenv("HOME", "/nowhere", 1);
  unsetenv("XDG_DATA_HOME");
  fs::current_path("/");
}

/// In a copy of this program: tells its identifier and the directory of its resources, having lost
/// its file, and makes its directory.
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
  std::cout << Application::identifier().view() << (isStable ? "" : " moved") << " "
            << Application::resourceDirectory().view() << std::flush;
  _exit(0);
}();

TEST(ApplicationTest, KeepsItsPlacesWhateverTheyAreCalledAndWhateverBecomesOfThem) {
  const std::tuple<const char*, std::string, std::string, std::string, std::string, const char*>
      cases[] = {
          {"HOME", "home", ".local/share", "player", "player", ""},
          {"XDG_DATA_HOME", "data", "", "player (deleted)", "player (deleted)", "/Resources"},
          {"HOME", "caf\xe9", ".local/share", "play\xe9r", "play%E9r", "/Resources"},
          {"XDG_DATA_HOME", "caf\xe9/data", "", "player", "player", ""}};
  for (const auto& [variable, directory, below, program, identifier, resources] : cases) {
    const TemporaryDirectory places;
    const std::string place = places.path();
    fs::copy_file("/proc/self/exe", places.path() / program);
    fs::create_directory(place + resources);
    const fs::path home = places.path() / directory;
    EXPECT_EQ(outputOf("cd '" + place + "' && unset XDG_DATA_HOME && QV_TEST_IS_COPY=1 " +
                       variable + "='" + home.string() + "' './" + program + "'"),
              identifier + " " + place + resources);
    const fs::path library = home / below / identifier / "Library";
    for (const fs::path& made : {library, library.parent_path()}) {
      EXPECT_EQ(fs::status(made).permissions(), fs::perms::owner_all) << identifier;
    }
    fs::remove_all(places.path() / directory.substr(0, directory.find('/')));
    fs::remove(place + "/Resources");
    EXPECT_TRUE(fs::is_empty(places.path())) << identifier;
  }
}

TEST(ApplicationTest, StaysBelowTheUsersDataDirectoryWhateverTheIdentifier) {
  const std::string home = getpwuid(geteuid())->pw_dir;
  const struct {
    const char* dataHome;
    const char* home;
    String identifier;
    String container;
  } cases[] = {{"/data/", "/home", "org.example.player", "/data/org.example.player"},
               {"data", "/home", "x", "/home/.local/share/x"},
               {"", "home", "x", home + "/.local/share/x"},
               {"", "", "x", home + "/.local/share/x"},
               {"/data", "", "/x", "/data/-x"},
               {"/data", "", "../../x", "/data/..-..-x"},
               {"/data", "", ".", "/data/.-"},
               {"/data", "", "..", "/data/..-"},
               {"/data", "", "\0"s, "/data/-"},
               {"/data", "", "", "/data/ApplicationTests"}};
  for (const auto& row : cases) {
    EXPECT_EQ(runInChild([&row] {
                setenv("XDG_DATA_HOME", row.dataHome, 1);
                setenv("HOME", row.home, 1);
                Application::setIdentifier(row.identifier);
                const String library = row.container + String("/Library");
                return Application::containerDirectory() != row.container ? 1
                       : Application::libraryDirectory() != library       ? 2
                                                                          : 0;
              }),
              0)
        << row.container.view();
  }
}

TEST(ApplicationTest, TakesARelativeDirectoryFromWhereItIsSet) {
  const TemporaryDirectory place;
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
