// The notifications of the C interface, and what is in them.

#include <QVCore/Internal/QVCInterface.h>
#include <QVCore/Internal/QVJSONText.h>
#include <QVCore/QVCoreConstants.h>
#include <QVCore/QVHTTPOperation.h>
#include <QVCore/QVNetworkManager.h>
#include <QVPlatform/Dispatch/NotificationCenter.h>
#include <QVPlatform/Foundation/ForkMutex.h>
#include <QVPlatform/Foundation/Lasting.h>

#include <map>
#include <memory>
#include <unordered_map>
#include <utility>

using namespace QVCInterface;
using QVPlatform::Dictionary;
using QVPlatform::Lock;
using QVPlatform::Notification;
using QVPlatform::NotificationCenter;
using QVPlatform::String;
using QVPlatform::Value;

struct qv_info {
  explicit qv_info(Dictionary content, int itsStatus = 0)
      : values(content.isNull() ? Dictionary::dictionary() : std::move(content)),
        status(itsStatus) {}

  /// The text stays as it is until it is asked for again.
  const char* textOf(const String& key) const {
    return (texts[key] = values.get(key).stringValue()).UTF8String();
  }

  Dictionary values;
  const int status;
  mutable std::map<String, String> texts;
};

namespace {

template <class Body>
qv_info* newInfo(Body&& body, int status = 0) {
  return resultOf([&] { return new qv_info(body(), status); }, static_cast<qv_info*>(nullptr));
}

int store(qv_info* info, const char* key, const Value& value) {
  if (!info) return QV_INVALID;
  return doneWith(key, [&](const String& name) {
    info->texts.erase(name);
    info->values.set(name, value);
  });
}

/// The core knows some requests by the constant itself.
String constantOr(const String& name) {
  for (const String* constant : {&kQVNotification_HTTPRequest, &kQVNotification_SegmentRequest}) {
    if (name == *constant) return *constant;
  }
  return name;
}

void post(const String& name, const Dictionary& userInfo) {
  NotificationCenter::defaultCenter()->postNotification(Notification(name, nullptr, userInfo));
}

/// Who listens, by numbers that are never used again, so that one which is no longer valid, or
/// never was, does no harm.
class Listeners {
 public:
  long add(const String& name, qv_callback callback, void* user) {
    auto key = std::make_unique<char>();
    const void* const observer = key.get();
    const long number = keep(std::move(key));
    const auto deliver = [callback, user](const Notification& heard) {
      const qv_info info(heard.userInfo().copy(), QVHTTPOperation::statusCodeBeingTold());
      callback(heard.name().UTF8String(), &info, user);
    };
    if (NotificationCenter::defaultCenter()->addObserver(observer, deliver, name)) return number;
    remove(number);
    return QV_FAILED;
  }

  int remove(long number) {
    Keys::node_type taken;
    {
      const Lock lock(mutex_);
      taken = keys_.extract(number);
    }
    if (taken.empty()) return QV_INVALID;
    NotificationCenter::defaultCenter()->removeObserver(taken.mapped().get());
    return QV_OK;
  }

 private:
  /// The address of each is what the center knows the listener by.
  using Keys = std::unordered_map<long, std::unique_ptr<char>>;

  long keep(std::unique_ptr<char> key) {
    const Lock lock(mutex_);
    keys_.emplace(last_ + 1, std::move(key));
    return ++last_;
  }

  QVPlatform::ForkMutex mutex_;
  long last_ QV_GUARDED_BY(mutex_) = 0;
  Keys keys_ QV_GUARDED_BY(mutex_);
};

Listeners& listeners() { return QVPlatform::Lasting<Listeners>::object(); }

}  // namespace

// User info.

qv_info* qv_info_new() {
  return newInfo([] { return Dictionary::dictionary(); });
}

qv_info* qv_info_copy(const qv_info* info) {
  return info ? newInfo([&] { return info->values.copy(); }, info->status) : nullptr;
}

qv_info* qv_info_request(const qv_info* info) {
  if (!info) return nullptr;
  return newInfo([&] { return QVNetworkManager::requestDataFromUserInfo(info->values); });
}

void qv_info_free(qv_info* info) { delete info; }

int qv_info_set_text(qv_info* info, const char* key, const char* text) {
  return doneWithOptional(text, [&](const String& value) { return store(info, key, value); });
}

int qv_info_set_number(qv_info* info, const char* key, double number) {
  return store(info, key, number);
}

int qv_info_set_flag(qv_info* info, const char* key, int flag) {
  return store(info, key, flag != 0);
}

const char* qv_info_text(const qv_info* info, const char* key) {
  if (!info) return nullptr;
  return resultOf([&] { return info->textOf(key); }, static_cast<const char*>(nullptr));
}

double qv_info_number(const qv_info* info, const char* key) {
  return info ? resultOf([&] { return info->values.get(key).doubleValue(); }, 0.0) : 0;
}

int qv_info_status(const qv_info* info) { return info ? info->status : 0; }

char* qv_info_json(const qv_info* info) {
  return info ? copyOf([&] { return QVJSONText(info->values); }) : nullptr;
}

// Notifications.

int qv_post(const char* name, const qv_info* info) {
  return doneWith(name, [&](const String& text) {
    post(constantOr(text), info ? info->values.copy() : nullptr);
  });
}

int qv_send(const char* url, const char* body) {
  return doneWith(url, [&](const String& place) {
    return doneWithOptional(body, [&](const String& text) {
      post(kQVNotification_HTTPRequest,
           {{kQVUserInfo_URLKey, place}, {kQVUserInfo_POSTData, text}});
    });
  });
}

long qv_listen(const char* name, qv_callback callback, void* user) {
  if (!callback) return QV_INVALID;
  long number = 0;
  const int result =
      doneWith(name, [&](const String& text) { number = listeners().add(text, callback, user); });
  return result == QV_OK ? number : result;
}

int qv_unlisten(long listener) {
  return done([&] { return listeners().remove(listener); });
}
