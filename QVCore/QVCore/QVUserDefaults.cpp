#include <QVCore/QVUserDefaults.h>

#include <QVPlatform/Files/UserDefaults.h>

using QVPlatform::String;
using QVPlatform::UserDefaults;
using QVPlatform::Value;

void QVUserDefaults::saveInfoToUserDefaultsForLabel(const Value& info, const String& label) {
  UserDefaults& defaults = UserDefaults::standardUserDefaults();
  defaults.setObjectForKey(info, label);
  defaults.synchronize();
}

Value QVUserDefaults::retrieveInfoFromUserDefaults(const String& label) {
  return UserDefaults::standardUserDefaults().objectForKey(label);
}
