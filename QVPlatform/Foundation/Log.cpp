#include <QVPlatform/Foundation/Log.h>

#include <cstdio>

namespace QVPlatform {

void consoleLog(const String& message) {
  const std::string_view text = message.isNull() ? "(null)" : message.view();
  std::fprintf(stderr, "QVCore: %.*s\n", static_cast<int>(text.size()), text.data());
}

}  // namespace QVPlatform
