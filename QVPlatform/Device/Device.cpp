#include <QVPlatform/Device/Device.h>

#include <QVPlatform/Application.h>
#include <QVPlatform/Foundation/CallOut.h>
#include <QVPlatform/Foundation/Lasting.h>
#include <QVPlatform/Foundation/Property.h>
#include <QVPlatform/Foundation/UUID.h>

#include <cstddef>
#include <fstream>
#include <string>
#include <utility>

namespace QVPlatform {
namespace {

/// Hashed with a machine's id before anything else is made of it, so that what the kit tells of a
/// machine cannot be matched with what another program tells of it. It never changes.
constexpr const char* kKeyOfMachineId = "QVCore identifier for vendor";

struct Settings {
  Property<Device::IdentifierProvider> identifierForVendor;
  Property<Device::IdentifierProvider> advertisingIdentifier;
  Property<String> vendorName;
  Property<SystemVersion> systemVersion{SystemVersion{14, 0, 0}};
};

Settings& settings() { return Lasting<Settings>::object(); }

/// 32 hexadecimal digits; null on a machine that has none (yet).
String machineId() {
  for (const char* path : {"/etc/machine-id", "/var/lib/dbus/machine-id"}) {
    std::string id;
    std::getline(std::ifstream(path), id);
    const bool isId =
        id.size() == 32 && id.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos;
    if (isId) return String(id);
  }
  return nullptr;
}

String makeIdentifierForVendor() {
  std::string machine(machineId().view());
  if (machine.empty()) return nullptr;
  for (const std::size_t hyphen : {20U, 16U, 12U, 8U}) machine.insert(hyphen, 1, '-');
  return UUID::nameBased(UUID::nameBased(machine, kKeyOfMachineId), Device::vendorName());
}

String ask(const Device::IdentifierProvider& provider) {
  String identifier;
  callOut([&] { identifier = provider(); });
  if (identifier.isEmpty()) return nullptr;
  const String upperCase = UUID::UUIDStringOfText(identifier);
  return upperCase.isNull() ? identifier : upperCase;
}

}  // namespace

String Device::identifierForVendor() {
  const auto provider = settings().identifierForVendor.get();
  return provider ? ask(provider) : makeIdentifierForVendor();
}

void Device::setIdentifierForVendorProvider(IdentifierProvider provider) {
  settings().identifierForVendor.set(std::move(provider));
}

String Device::vendorName() {
  String chosen = settings().vendorName.get();
  if (!chosen.isEmpty()) return chosen;
  const String identifier = Application::identifier();
  const std::size_t lastDot = identifier.view().rfind('.');
  return lastDot == 0 ? identifier : String(identifier.view().substr(0, lastDot));
}

void Device::setVendorName(String name) { settings().vendorName.set(std::move(name)); }

String Device::advertisingIdentifier() {
  const auto provider = settings().advertisingIdentifier.get();
  return provider ? ask(provider) : nullptr;
}

void Device::setAdvertisingIdentifierProvider(IdentifierProvider provider) {
  settings().advertisingIdentifier.set(std::move(provider));
}

SystemVersion Device::systemVersion() { return settings().systemVersion.get(); }

void Device::setSystemVersion(SystemVersion version) { settings().systemVersion.set(version); }

}  // namespace QVPlatform
