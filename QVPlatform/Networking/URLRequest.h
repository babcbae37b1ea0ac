#pragma once

#include <QVPlatform/Export.h>
#include <QVPlatform/Foundation/Coding.h>
#include <QVPlatform/Foundation/Data.h>
#include <QVPlatform/Foundation/Date.h>
#include <QVPlatform/Foundation/Mutex.h>
#include <QVPlatform/Foundation/Object.h>
#include <QVPlatform/Networking/HTTPHeaderFields.h>
#include <QVPlatform/Networking/URL.h>

#include <cstdint>
#include <memory>
#include <optional>

namespace QVPlatform {

/// Whether a cached answer may or must stand in for a transfer. URLConnection has no cache: all
/// policies load but kReturnCacheDataDontLoad, which forbids that and always fails.
enum class URLRequestCachePolicy : std::uint32_t {
  kUseProtocolCachePolicy = 0,
  kReloadIgnoringLocalCacheData = 1,
  kReturnCacheDataElseLoad = 2,
  kReturnCacheDataDontLoad = 3,
  kReloadIgnoringLocalAndRemoteCacheData = 4,
  kReloadRevalidatingCacheData = 5,
};

/// One HTTP request to be sent: where, how, with which fields and which body.
///
/// Threads: every operation may be called from any thread and is atomic by itself, so that a
/// request which is under way or has been posted can be read, and even changed, by whoever has it.
/// What is sent is what the request held when sending began.
class QVPLATFORM_EXPORT MutableURLRequest : public Object, public Coding {
 public:
  /// A bare one, for initWithCoder(): a GET without a URL.
  MutableURLRequest();
  /// A GET without fields and body. `timeoutInterval`: the seconds without progress after which the
  /// transfer fails; anything but a positive number means 60.
  MutableURLRequest(std::optional<URL> url, URLRequestCachePolicy cachePolicy,
                    TimeInterval timeoutInterval);
  MutableURLRequest(const MutableURLRequest& other);

  /// None makes a request that fails when it is sent.
  const std::optional<URL>& url() const noexcept { return url_; }
  URLRequestCachePolicy cachePolicy() const noexcept { return cachePolicy_; }
  TimeInterval timeoutInterval() const noexcept { return timeoutInterval_; }

  /// "GET" at first. Never null.
  String HTTPMethod() const;
  /// What is not a method name (null, empty, with blanks or line breaks) changes nothing.
  void setHTTPMethod(String method);

  /// Null at first: none.
  Data HTTPBody() const;
  void setHTTPBody(Data body);

  /// Adds the value to the field; a value that is there already stays in front, with a comma
  /// between the two. A field name that is not one, a null value, and a value with a line break or
  /// a zero byte change nothing: they could smuggle other fields into the request.
  void addValueForHTTPHeaderField(const String& value, const String& field);
  /// The field's value, whatever the case of its name; null when it has none.
  String valueForHTTPHeaderField(const String& field) const;
  /// A new dictionary of all values by field name.
  Dictionary allHTTPHeaderFields() const;

  /// What a request consists of beside its URL.
  struct Content {
    String method;
    Data body;
    HTTPHeaderFields fields;
  };
  /// A copy of all of it as it stands at one moment.
  Content content() const;

  /// Another request with the same content.
  std::shared_ptr<MutableURLRequest> copy() const;
  /// Class, address, method and URL.
  String description() const override;

  void encodeWithCoder(KeyedArchiver& coder) const override;
  void initWithCoder(KeyedUnarchiver& coder) override;

 private:
  // Never changed but by initWithCoder(), before anybody else has the request.
  std::optional<URL> url_;
  URLRequestCachePolicy cachePolicy_;
  TimeInterval timeoutInterval_;
  mutable Mutex mutex_;
  Content content_ QV_GUARDED_BY(mutex_);
};

}  // namespace QVPlatform
