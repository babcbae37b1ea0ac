#include "modules/vendor_list/VendorList.h"

using QVPlatform::Notification;
using QVPlatform::String;
using QVPlatform::operator""_string;  // NOLINT(misc-unused-using-decls)
using QVPlatform::stringWithFormat;
using QVPlatform::Value;

namespace {

constexpr String kName = "vendors"_string;
constexpr String kVersionPath = "info/version"_string;

}  // namespace

std::shared_ptr<VendorList> VendorList::load(const String& url,
                                             const std::shared_ptr<QVEventListener>& listener) {
  const auto factory = QVConfigurationFileFactory::sharedInstance();
  auto list = std::make_shared<VendorList>();
  // Registered first, so that whoever hears of a change finds the list by its name.
  factory->addConfigurationFileFromFileForListener(kName, list, listener);
  list->setSiteIDFileIDFileNameVersionPathAndURL(factory->siteID(), factory->containerID(), kName,
                                                 kVersionPath, url);
  return list;
}

std::string VendorList::nameOf(int vendor) const {
  // A key that is missing is passed over on the way down, so "vendors/99/name" may find the name of
  // something else: first see whether there is such a vendor.
  const Value entry = getJsonLeafFromPath(stringWithFormat("vendors/%@", {vendor}));
  return std::string(entry.dictionary().get("name").string().view());
}

bool VendorList::specificUpdateAnd(const String&, const String&) {
  post(kQVNotification_ConfigurationChanged + kName);
  post(kQVNotification_ConfigurationChanged + String("@") + kName);
  return true;
}

void VendorList::post(const String& changed) {
  if (const auto sender = senderDelegate()) sender->send(Notification(changed, self()));
}
