#include <QVPlatform/Application.h>

#include <QVPlatform/Foundation/ForkMutex.h>
#include <QVPlatform/Foundation/Lasting.h>
#include <QVPlatform/Foundation/Log.h>
#include <QVPlatform/Foundation/Property.h>

#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace QVPlatform {
namespace {

namespace fs = std::filesystem;

/// Where nothing is and nothing can be made.
constexpr const char* kNowhere = "/dev/null";

struct Settings {
  Property<String> identifier;
  Property<String> version;
  Property<String> containerDirectory;
  Property<String> resourceDirectory;
};

Settings& settings() { return Lasting<Settings>::object(); }

/// A program whose file was replaced while it ran, as an update does, is marked by the kernel.
fs::path programPath() {
  constexpr std::string_view kMark = " (deleted)";
  std::error_code ignored;
  std::string path = fs::read_symlink("/proc/self/exe", ignored).string();
  if (path.ends_with(kMark) && !fs::exists(path, ignored)) path.resize(path.size() - kMark.size());
  return path;
}

std::string environment(const char* name) {
  const char* value = std::getenv(name);
  return value ? value : "";
}

std::string homeDirectory() {
  if (std::string home = environment("HOME"); home.starts_with('/')) return home;
  passwd entry{};
  passwd* found = nullptr;
  char buffer[4096];
  getpwuid_r(geteuid(), &entry, buffer, sizeof buffer, &found);
  return found ? found->pw_dir : "/";
}

fs::path dataDirectory() {
  // A relative $XDG_DATA_HOME is to be ignored, as its own rules say.
  const std::string chosen = environment("XDG_DATA_HOME");
  return chosen.starts_with('/') ? fs::path(chosen) : fs::path(homeDirectory()) / ".local/share";
}

void makePrivateDirectories(const fs::path& path) {
  fs::path made;
  for (const fs::path& part : path) {
    made /= part;
    mkdir(made.c_str(), S_IRWXU);
  }
}

/// The path as text. A directory whose name is not UTF-8 is kept open instead, and what lies below
/// it is reached by the name that the kernel gives to whatever is open. Null if that fails.
String textOf(const fs::path& path) {
  fs::path kept;
  fs::path rest;
  for (const fs::path& part : path) {
    rest /= part;
    if (!String(std::string_view(part.string())).isNull()) continue;
    kept /= rest;
    rest.clear();
  }
  if (kept.empty()) return String(path.string());
  makePrivateDirectories(kept);
  const int descriptor = open(kept.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
  if (descriptor < 0) return nullptr;
  return String((fs::path("/proc/self/fd") / std::to_string(descriptor) / rest).string());
}

/// With what is not ASCII percent-encoded in a name that is not UTF-8.
String nameOf(const std::string& name) {
  if (String text = std::string_view(name); !text.isNull()) return text;
  constexpr char kDigits[] = "0123456789ABCDEF";
  std::string encoded;
  for (const char c : name) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte < 0x80) {
      encoded.push_back(c);
    } else {
      encoded.append({'%', kDigits[byte >> 4], kDigits[byte & 15]});
    }
  }
  return String(encoded);
}

fs::path resourcesBeside(const fs::path& program) {
  std::error_code ignored;
  const fs::path resources = program.parent_path() / "Resources";
  return fs::is_directory(resources, ignored) ? resources : program.parent_path();
}

/// Tells a directory by its text, which is kept once there is one.
class Place {
 public:
  explicit Place(fs::path path) : path_(std::move(path)) {}

  String text() {
    if (text_.isNull()) text_ = textOf(path_);
    return text_.isNull() ? String(kNowhere) : text_;
  }

 private:
  const fs::path path_;
  String text_;
};

/// Found out once: no place may move because an update replaces the program or somebody changes the
/// environment, since what was saved there would not be found again.
struct Defaults {
  const fs::path program = programPath();
  const String identifier = nameOf(program.filename().string());
  Place dataDirectory{QVPlatform::dataDirectory()};
  Place resourceDirectory{resourcesBeside(program)};
};

struct FoundDefaults {
  ForkMutex mutex;
  std::optional<Defaults> defaults QV_GUARDED_BY(mutex);
};

/// One of the defaults; they are found out when the first is asked for.
template <class Ask>
String defaultOf(const Ask& ask) {
  auto& found = Lasting<FoundDefaults>::object();
  const Lock lock(found.mutex);
  if (!found.defaults) found.defaults.emplace();
  return ask(*found.defaults);
}

/// The identifier as the name of one directory, which leads nowhere else.
String directoryName(const String& identifier) {
  std::string name(identifier.view());
  for (char& c : name) {
    if (c == '/' || c == '\0') c = '-';
  }
  const bool isName = !name.empty() && name != "." && name != "..";
  return String(isName ? name : name + "-");
}

void setDirectory(Property<String>& setting, String directory) {
  const fs::path path(directory.view());
  if (!path.empty() && !path.is_absolute()) {
    std::error_code error;
    const fs::path current = fs::current_path(error);
    const String absolute = error ? String() : textOf(current / path);
    if (absolute.isNull()) {
      consoleLog(String("no current directory to take \"") + directory + String("\" from"));
      return;
    }
    directory = absolute;
  }
  setting.set(std::move(directory));
}

}  // namespace

String Application::identifier() {
  String chosen = settings().identifier.get();
  return chosen.isEmpty() ? defaultOf([](Defaults& defaults) { return defaults.identifier; })
                          : chosen;
}

void Application::setIdentifier(String identifier) {
  settings().identifier.set(std::move(identifier));
}

String Application::version() { return settings().version.get(); }

void Application::setVersion(String version) { settings().version.set(std::move(version)); }

String Application::containerDirectory() {
  String chosen = settings().containerDirectory.get();
  if (!chosen.isEmpty()) return chosen;
  return defaultOf([](Defaults& defaults) { return defaults.dataDirectory.text(); })
      .stringByAppendingPathComponent(directoryName(identifier()));
}

void Application::setContainerDirectory(String directory) {
  setDirectory(settings().containerDirectory, std::move(directory));
}

String Application::libraryDirectory() {
  return containerDirectory().stringByAppendingPathComponent("Library");
}

String Application::makeLibraryDirectory() {
  String library = libraryDirectory();
  makePrivateDirectories(library.view());
  return library;
}

String Application::resourceDirectory() {
  String chosen = settings().resourceDirectory.get();
  return chosen.isEmpty()
             ? defaultOf([](Defaults& defaults) { return defaults.resourceDirectory.text(); })
             : chosen;
}

void Application::setResourceDirectory(String directory) {
  setDirectory(settings().resourceDirectory, std::move(directory));
}

}  // namespace QVPlatform
