#pragma once

#include <QVPlatform/Export.h>
#include <QVPlatform/Foundation/Coding.h>
#include <QVPlatform/Foundation/Dictionary.h>
#include <QVPlatform/Foundation/Object.h>

#include <memory>
#include <string>

namespace QVPlatform {

/// What an HTTP answer says before its body: status, header fields, and where it came from.
///
/// Immutable once it is set up: safe to read from any thread.
class QVPLATFORM_EXPORT HTTPURLResponse : public Object, public Coding {
 public:
  /// A bare one, for initWithCoder().
  HTTPURLResponse() = default;
  /// `header`: the lines of the header as they were received, with or without the status line.
  HTTPURLResponse(String url, int statusCode, std::string header);

  /// The text of the URL that answered: the last one, when the request was redirected.
  String URL() const { return url_; }
  int statusCode() const noexcept { return statusCode_; }
  /// The field's value, whatever the case of its name; null when it has none. Of a repeated field
  /// the values are joined by ", ". Values that are not UTF-8 are read as Latin-1.
  String valueForHTTPHeaderField(const String& field) const;
  /// A new dictionary of all values by field name, each name as the server spelled it first.
  Dictionary allHeaderFields() const;

  /// Another response of the same content.
  std::shared_ptr<HTTPURLResponse> copy() const;
  /// Class, address, status and URL.
  String description() const override;

  void encodeWithCoder(KeyedArchiver& coder) const override;
  void initWithCoder(KeyedUnarchiver& coder) override;

 private:
  String url_;
  int statusCode_ = 0;
  std::string header_;  // few ask for a field: it is read when they do
};

}  // namespace QVPlatform
