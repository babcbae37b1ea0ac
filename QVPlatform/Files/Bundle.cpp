#include <QVPlatform/Files/Bundle.h>

#include <QVPlatform/Application.h>
#include <QVPlatform/Files/FileManager.h>

#include <string_view>

namespace QVPlatform {

std::shared_ptr<Bundle> Bundle::mainBundle() {
  static const std::shared_ptr<Bundle>& bundle =
      *new std::shared_ptr<Bundle>(std::make_shared<Bundle>(Application::resourceDirectory()));
  return bundle;
}

Bundle::Bundle(String directory) : directory_(std::move(directory)) {}

String Bundle::pathForResource(const String& name, const String& type) const {
  if (directory_.isEmpty() || name.isEmpty()) return nullptr;
  const String file = type.isEmpty() ? name : name + String(".") + type;
  // Without a slash, only these two names lead anywhere else.
  const bool leadsOut = file.view().find('/') != std::string_view::npos || file == String(".") ||
                        file == String("..");
  const String path = directory_.stringByAppendingPathComponent(file);
  return !leadsOut && FileManager::fileExistsAtPath(path) ? path : String();
}

}  // namespace QVPlatform
