#pragma once

#include <QVCore/QVCore.h>

#include <memory>
#include <string>

#define VENDOR_LIST_EXPORT __attribute__((visibility("default")))

/// A module with a configuration of its own: the partners that may receive data, by number.
///
///     {"info": {"version": 3}, "vendors": {"12": {"name": "Example"}}}
///
/// It specialises QVConfigurationFile to tell the other modules when a newer list has come; the
/// core itself tells nobody. Threads: nameOf() and version() may be called from any thread.
class VENDOR_LIST_EXPORT VendorList final : public QVConfigurationFile {
 public:
  /// Makes the list and registers it as "vendors". It is filled from "vendors.json", which is
  /// shipped with the application, and a newer one is asked for at the URL; a null URL stands for
  /// the collector's own. `listener`, when given, hears "QVNotification: Configuration
  /// changed@vendors".
  static std::shared_ptr<VendorList> load(const QVPlatform::String& url,
                                          const std::shared_ptr<QVEventListener>& listener);

  /// The partner's name, or "" for one that is not in the list.
  std::string nameOf(int vendor) const;

  /// Posts both names that stand for a change: one for the log and one for the modules.
  bool specificUpdateAnd(const QVPlatform::String& oldText,
                         const QVPlatform::String& newText) override;

 private:
  void post(const QVPlatform::String& name);
};
