#include <QVPlatform/Foundation/Null.h>

#include <QVPlatform/Foundation/Lasting.h>

namespace QVPlatform {

const std::shared_ptr<Null>& Null::null() {
  struct Shared {
    const std::shared_ptr<Null> null = std::make_shared<Null>();
  };
  return Lasting<Shared>::object().null;
}

String Null::description() const { return "<null>"; }

}  // namespace QVPlatform
