#include <QVPlatform/Application.h>

#include <QVPlatform/Foundation/Property.h>

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>

namespace QVPlatform {
namespace {

namespace fs = std::filesystem;

struct Settings {
  Property<String> identifier;
  Property<String> version;
  Property<String> containerDirectory;
  Property<String> resourceDirectory;
};

Settings& settings() {
  static Settings& settings = *new Settings;  // never destroyed: threads may outlive main
  return settings;
}

fs::path programPath() {
  std::error_code ignored;
  return fs::read_symlink("/proc/self/exe", ignored);
}

std::string environment(const char* name) {
  const char* value = std::getenv(name);
  return value ? value : "";
}

std::string homeDirectory() {
  if (std::string home = environment("HOME"); !home.empty()) return home;
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

String valueOr(const Property<String>& property, const fs::path& fallback) {
  const String value = property.get();
  return value.isEmpty() ? String(fallback.string()) : value;
}

}  // namespace

String Application::identifier() {
  return valueOr(settings().identifier, programPath().filename());
}

void Application::setIdentifier(String identifier) {
  settings().identifier.set(std::move(identifier));
}

String Application::version() { return settings().version.get(); }

void Application::setVersion(String version) { settings().version.set(std::move(version)); }

String Application::containerDirectory() {
  return valueOr(settings().containerDirectory, dataDirectory() / identifier().view());
}

void Application::setContainerDirectory(String directory) {
  settings().containerDirectory.set(std::move(directory));
}

String Application::libraryDirectory() {
  return String((fs::path(containerDirectory().view()) / "Library").string());
}

String Application::makeLibraryDirectory() {
  const String library = libraryDirectory();
  makePrivateDirectories(library.view());
  return library;
}

String Application::resourceDirectory() {
  const fs::path programDirectory = programPath().parent_path();
  std::error_code ignored;
  const fs::path resources = programDirectory / "Resources";
  return valueOr(settings().resourceDirectory,
                 fs::is_directory(resources, ignored) ? resources : programDirectory);
}

void Application::setResourceDirectory(String directory) {
  settings().resourceDirectory.set(std::move(directory));
}

}  // namespace QVPlatform
