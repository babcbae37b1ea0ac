#include <QVPlatform/Foundation/Error.h>

#include <QVPlatform/Foundation/Value.h>

namespace QVPlatform {

Error::Error(String domain, int code, String localizedDescription)
    : domain_(std::move(domain)),
      code_(code),
      localizedDescription_(std::move(localizedDescription)) {}

String Error::description() const {
  return stringWithFormat("%@ %@: %@", {domain_, code_, localizedDescription_});
}

}  // namespace QVPlatform
