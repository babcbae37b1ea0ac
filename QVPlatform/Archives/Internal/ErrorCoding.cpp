// How errors go into keyed archives and come back: under the name and the keys that the format has
// for them, so that other readers and writers can share them.

#include <QVPlatform/Archives/KeyedArchiver.h>
#include <QVPlatform/Archives/KeyedUnarchiver.h>
#include <QVPlatform/Foundation/ClassRegistry.h>
#include <QVPlatform/Foundation/Error.h>

namespace QVPlatform {
namespace {

constexpr char kDescriptionKey[] = "NSLocalizedDescription";
const RegisteredClass<Error> registeredError{"NSError"};

}  // namespace

void Error::encodeWithCoder(KeyedArchiver& coder) const {
  coder.encodeObjectForKey(domain_, "NSDomain");
  coder.encodeIntegerForKey(code_, "NSCode");
  coder.encodeObjectForKey(Dictionary({{kDescriptionKey, localizedDescription_}}), "NSUserInfo");
}

String Error::classNameForCoder() const { return "NSError"; }

void Error::initWithCoder(KeyedUnarchiver& coder) {
  domain_ = coder.decodeObjectForKey("NSDomain").string();
  code_ = coder.decodeObjectForKey("NSCode").intValue();
  const Dictionary userInfo = coder.decodeObjectForKey("NSUserInfo").dictionary();
  localizedDescription_ = userInfo.get(kDescriptionKey).string();
}

}  // namespace QVPlatform
