#pragma once

#include <QVPlatform/Export.h>
#include <QVPlatform/Foundation/String.h>

#include <compare>
#include <functional>

namespace QVPlatform {

/// Version of the system that the application runs on; compares number by number.
struct SystemVersion {
  int major = 0;
  int minor = 0;
  int patch = 0;

  friend auto operator<=>(const SystemVersion&, const SystemVersion&) = default;  // NOLINT
};

/// What identifies the device, and what the application wants to say about that itself.
///
/// Every answer has a working default; what is set, is set before the core starts. All operations
/// may be called from any thread.
class QVPLATFORM_EXPORT Device {
 public:
  /// Gives an identifier, or null when there is none; empty text is none, too, and a UUID is put in
  /// upper case. Called on the thread that asks, each time that somebody asks.
  using IdentifierProvider = std::function<String()>;

  /// Identifies this device to all applications of one vendor: the same in each of them and after
  /// every restart, another for another vendor. An upper-case UUID. By default it is made from the
  /// machine's id, which cannot be found out from it, and from the vendor's name; null on a machine
  /// without an id.
  static String identifierForVendor();
  /// Replaces how identifierForVendor() comes about; an empty function brings the default back.
  static void setIdentifierForVendorProvider(IdentifierProvider provider);

  /// Name that all applications of one vendor share. Default: the application's identifier without
  /// its last part ("org.example" for "org.example.player").
  static String vendorName();
  static void setVendorName(String name);

  /// The identifier that the device's owner lets advertisers use, as an upper-case UUID; null
  /// unless the application gives a provider, since only some devices (televisions, set-top boxes)
  /// have one.
  static String advertisingIdentifier();
  static void setAdvertisingIdentifierProvider(IdentifierProvider provider);

  /// What run-time availability checks compare with. Default: 14.0.0, from which on the core does
  /// not read the advertising identifier.
  static SystemVersion systemVersion();
  static void setSystemVersion(SystemVersion version);
};

}  // namespace QVPlatform
