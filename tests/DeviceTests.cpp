#include <sched.h>
#include <sys/mount.h>

#include "tests/support/ChildProcess.h"
#include "tests/support/CoreTest.h"
#include "tests/support/Test.h"

namespace {

constexpr const char* kNotPermitted = "not permitted";

/// The identifier on a machine whose id file has the given contents, or "" for none.
std::string identifierOnMachine(const std::string& contents) {
  const TemporaryDirectory directory;
  putFile(directory.path() / "machine-id", contents);
  return ChildProcess([&]() -> std::string {
           if (unshare(CLONE_NEWNS) != 0 && unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) {
             return kNotPermitted;
           }
           mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr);
           const char* const source = directory.path().c_str();
           if (mount(source, "/etc", nullptr, MS_BIND, nullptr) != 0) return kNotPermitted;
           const bool hasOther = std::filesystem::exists("/var/lib/dbus");
           if (hasOther && mount(source, "/var/lib/dbus", nullptr, MS_BIND, nullptr) != 0) {
             return kNotPermitted;
           }
           return std::string(Device::identifierForVendor().view());
         })
      .text();
}

TEST(DeviceTest, MakesTheVendorIdentifierFromTheMachinesIdAndTheVendorsName) {
  const char* const cases[][3] = {
      {"6e6e3b4c8f0a4e5fb1b7a1d4c3e2f101\n", "org.example", "0F78B62E-3D9F-5BE1-96CF-6EE9816861C6"},
      {"6E6E3B4C8F0A4E5FB1B7A1D4C3E2F101", "org.example", "0F78B62E-3D9F-5BE1-96CF-6EE9816861C6"},
      {"6e6e3b4c8f0a4e5fb1b7a1d4c3e2f101\n", "org.example2",
       "3CBAFEC1-1715-5EDA-8B24-61DD945031AB"},
      {"6e6e3b4c8f0a4e5fb1b7a1d4c3e2f102\n", "org.example", "FA5D928E-71E9-502C-9CA4-E3E37BFDEFE8"},
      {"", "org.example", ""},
      {"6e6e3b4c8f0a4e5fb1b7a1d4c3e2f10\n", "org.example", ""},
      {"6e6e3b4c8f0a4e5fb1b7a1d4c3e2f10g\n", "org.example", ""},
      {"6e6e3b4c8f0a4e5fb1b7a1d4c3e2f10100\n", "org.example", ""},
  };
  for (const auto& [machineId, vendor, identifier] : cases) {
    Device::setVendorName(vendor);
    const std::string made = identifierOnMachine(machineId);
    if (made == kNotPermitted) GTEST_SKIP() << "this user may not give a process its own /etc";
    EXPECT_EQ(made, identifier) << machineId << vendor;
  }
}

TEST(DeviceTest, TakesTheVendorsNameFromTheApplicationsIdentifier) {
  const char* const cases[][2] = {
      {"org.example.player", "org.example"}, {"player", "player"}, {".player", ".player"}};
  Device::setVendorName(nullptr);
  for (const auto& [identifier, vendor] : cases) {
    Application::setIdentifier(identifier);
    EXPECT_EQ(Device::vendorName(), String(vendor));
  }
  Device::setVendorName("org.other");
  EXPECT_EQ(Device::vendorName(), String("org.other"));
}

TEST(DeviceTest, LetsTheApplicationReplaceEachIdentifier) {
  EXPECT_EQ(Device::systemVersion().major, 14);
  const String byDefault = Device::identifierForVendor();
  EXPECT_TRUE(Device::advertisingIdentifier().isNull());
  const std::pair<Device::IdentifierProvider, String> cases[] = {
      {[] { return String("own"); }, "own"},
      {[] { return String(""); }, nullptr},
      {[]() -> String { throw std::runtime_error("no bus"); }, nullptr},
      {[] { return String("6e6e3b4c-8f0a-4e5f-b1b7-a1d4c3e2f1ff"); },
       "6E6E3B4C-8F0A-4E5F-B1B7-A1D4C3E2F1FF"},
      {[] { return String("6e6e3b4c-8f0a-4e5f-b1b7-a1d4c3e2f1fg"); },
       "6e6e3b4c-8f0a-4e5f-b1b7-a1d4c3e2f1fg"}};
  for (const auto& [provider, identifier] : cases) {
    Device::setAdvertisingIdentifierProvider(provider);
    Device::setIdentifierForVendorProvider(provider);
    EXPECT_EQ(Device::advertisingIdentifier(), identifier);
    EXPECT_EQ(Device::identifierForVendor(), identifier);
  }
  Device::setIdentifierForVendorProvider(nullptr);
  EXPECT_EQ(Device::identifierForVendor(), byDefault);
}

}  // namespace
