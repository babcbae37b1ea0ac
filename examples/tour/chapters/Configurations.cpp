#include <mutex>
#include <utility>

#include "modules/vendor_list/VendorList.h"
#include "tour/Chapters.h"
#include "tour/kit/LogCapture.h"

namespace {

using QVPlatform::Notification;
using QVPlatform::String;

constexpr int kVendor = 12;
constexpr std::int32_t kConfigurations = 4;  // level of the core's log
constexpr std::int32_t kSilent = 6;

// What is heard of the list.
constexpr const char* kAnswered = "QVNotification: Privacy Configuration Responsevendors";
constexpr const char* kChanged = "QVNotification: Configuration changedvendors";
constexpr const char* kChangedForModules = "QVNotification: Configuration changed@vendors";

std::string listWith(int version, const std::string& name) {
  return R"({"info": {"version": )" + std::to_string(version) +
         R"(}, "vendors": {"12": {"name": ")" + name + "\"}}}";
}

/// Another module, which hears what becomes of the list.
class Neighbour final : public IQVEventListenerDelegate {
 public:
  Neighbour() {
    listener_->setParent(this);
    for (const String& name : {kQVNotification_ConfigurationResponse + String("vendors"),
                               kQVNotification_ConfigurationChanged + String("vendors"),
                               kQVNotification_HTTPRequestError}) {
      listener_->listen(name);
    }
  }
  ~Neighbour() override { listener_->setParent(nullptr); }

  const std::shared_ptr<QVEventListener>& listener() const { return listener_; }
  /// What it has heard since the last call.
  std::vector<std::string> take() {
    const std::lock_guard lock(mutex_);
    return std::exchange(heard_, {});
  }

  void changeNotificationCenter(
      const std::shared_ptr<QVPlatform::NotificationCenter>& center) override {
    listener_->setNotificationCenter(center);
  }
  /// Runs on the core's thread.
  void onNotificationReceived(const Notification& notification) override {
    const std::lock_guard lock(mutex_);
    heard_.emplace_back(notification.name().view());
  }

 private:
  const std::shared_ptr<QVEventListener> listener_ = std::make_shared<QVEventListener>()->init();
  std::mutex mutex_;
  std::vector<std::string> heard_;
};

void expectList(Tour& tour, const VendorList& list, const std::string& name, int version) {
  const std::string versionSeen(list.getJsonLeafFromPath("info/version").description().view());
  tour.narrator.checkSame(
      {name, std::to_string(version)}, {list.nameOf(kVendor), versionSeen},
      "version " + std::to_string(version) + " is in use: vendor 12 is " + name);
}

/// Has the list asked for, and checks what the collector answers.
void download(Tour& tour, VendorList& list, const std::string& status) {
  tour.narrator.event("> the list is asked for");
  list.downloadConfigurationUpdate();
  const bool isDone = tour.host.waitForDownloads();
  tour.expectHits({"GET /vendors.json: " + status}, "the collector answers " + status);
  if (!isDone) tour.narrator.check(false, "the answer has come");
}

std::shared_ptr<VendorList> loadShippedList(Tour& tour, const Neighbour& neighbour) {
  tour.narrator.say(
      "A module has a configuration: a list of vendors, of which version 1 is shipped with the "
      "application. The first request for a newer one is blocked, so that the shipped one shows.");
  QVDebug::blockHits(true);
  auto list = VendorList::load(tour.collector.url() + "/vendors.json", neighbour.listener());
  tour.narrator.check(tour.host.waitForDownloads(), "no request waits");
  QVDebug::blockHits(false);
  tour.expectHits({}, "the collector has received nothing");
  expectList(tour, *list, "Shipped Vendor", 1);
  return list;
}

void takeNewerList(Tour& tour, VendorList& list, Neighbour& neighbour) {
  tour.narrator.say(
      "The collector has version 2. It replaces version 1, and the module, whose "
      "specificUpdateAnd() is called for that, tells the others.");
  tour.collector.publish(listWith(2, "Second Vendor"), Collector::kLongAgo);
  download(tour, list, "200");
  expectList(tour, list, "Second Vendor", 2);
  tour.narrator.checkSame({kAnswered, kChanged, kChangedForModules}, neighbour.take(),
                          "the others hear of it once, under either name");

  tour.narrator.say("When it is asked again, the collector has nothing newer.");
  download(tour, list, "304");
  expectList(tour, list, "Second Vendor", 2);
  tour.narrator.checkSame({}, neighbour.take(), "nobody hears anything");
}

void keepOutOlderList(Tour& tour, VendorList& list, Neighbour& neighbour) {
  tour.narrator.say("The collector goes back to version 1, which is kept out.");
  tour.collector.publish(listWith(1, "Outdated Vendor"), Collector::kFarAhead);
  download(tour, list, "200");
  expectList(tour, list, "Second Vendor", 2);
  tour.narrator.checkSame({kAnswered}, neighbour.take(), "the others hear of no change");
}

void keepOutBrokenList(Tour& tour, VendorList& list, Neighbour& neighbour) {
  tour.narrator.say("What is no list at all is kept out as well, and the core's log says so:");
  tour.collector.publish("{ broken", Collector::kFarAhead);
  QVDebug::setDebugLevel(kConfigurations);
  const auto log = linesLoggedDuring([&] {
    list.downloadConfigurationUpdate();
    tour.host.waitForDownloads();
  });
  QVDebug::setDebugLevel(kSilent);
  for (const std::string& line : log) tour.narrator.event(line);
  tour.narrator.checkSame(
      {"Error getting branch in JSON: info", "Error getting branch in JSON: version",
       "Either the offline or the new configuration is not valid",
       "Saved one: " + listWith(2, "Second Vendor"), "New one: { broken"},
      log, "it shows the list that is kept and the one that is not");
  tour.expectHits({"GET /vendors.json: 200"}, "the collector answered 200");
  expectList(tour, list, "Second Vendor", 2);
  tour.narrator.checkSame({kAnswered}, neighbour.take(), "the others hear of no change");
}

}  // namespace

void followConfiguration(Tour& tour) {
  Neighbour neighbour;
  const auto list = loadShippedList(tour, neighbour);
  takeNewerList(tour, *list, neighbour);
  keepOutOlderList(tour, *list, neighbour);
  keepOutBrokenList(tour, *list, neighbour);
}
