#include <QVPlatform/WebKit/WebEngine.h>

#include <QVPlatform/Foundation/Lasting.h>
#include <QVPlatform/Foundation/Log.h>
#include <QVPlatform/Foundation/Property.h>

#include <dlfcn.h>

#include <filesystem>
#include <string>
#include <utility>

namespace QVPlatform {
namespace {

using SharedEngine = std::shared_ptr<WebEngine>;

Property<SharedEngine>& engineOfApplication() { return Lasting<Property<SharedEngine>>::object(); }

/// The library's path beside this one, where it is installed. It is sought nowhere else, so that
/// what is loaded does not hang on the application's search paths.
std::string pathOfDefaultEngine() {
  Dl_info own{};
  if (dladdr(reinterpret_cast<const void*>(&pathOfDefaultEngine), &own) == 0) return "";
  const std::filesystem::path self(own.dli_fname);
  std::error_code ignored;
  return std::filesystem::absolute(self, ignored)
      .replace_filename(QVPLATFORM_WEBKIT_LIBRARY)
      .string();
}

SharedEngine loadDefaultEngine() {
  void* const library =
      dlopen(pathOfDefaultEngine().c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
  void* const symbol = library ? dlsym(library, "QVWebKitMakeEngine") : nullptr;
  if (!symbol) {
    consoleLog(String("no web engine, hence no user agent: install the kit's own beside "
                      "libQVPlatform, or set another one with WebEngine::setEngine(): ") +
               String(dlerror()));
    return nullptr;
  }
  return SharedEngine(reinterpret_cast<WebEngine* (*)()>(symbol)());
}

}  // namespace

WebEngine::~WebEngine() = default;

std::shared_ptr<WebEngine> WebEngine::engine() {
  if (auto engine = engineOfApplication().get()) return engine;
  static const auto& defaultEngine = *new SharedEngine(loadDefaultEngine());
  return defaultEngine;
}

void WebEngine::setEngine(std::shared_ptr<WebEngine> engine) {
  engineOfApplication().set(std::move(engine));
}

}  // namespace QVPlatform
