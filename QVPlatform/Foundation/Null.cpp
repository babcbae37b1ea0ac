#include <QVPlatform/Foundation/Null.h>

namespace QVPlatform {

const std::shared_ptr<Null>& Null::null() {
  static const auto& shared = *new const std::shared_ptr<Null>(std::make_shared<Null>());
  return shared;
}

String Null::description() const { return "<null>"; }

}  // namespace QVPlatform
