#pragma once

#include <QVPlatform/Foundation/Dictionary.h>
#include <QVPlatform/Foundation/Object.h>
#include <QVPlatform/Foundation/String.h>

#include <memory>
#include <utility>

namespace QVPlatform {

/// A message: its name, the object that it is about or comes from (or null), and its user info (or
/// null). Copying one copies no content: the user info is the same dictionary.
class Notification {
 public:
  explicit Notification(String name, std::shared_ptr<Object> object = nullptr,
                        Dictionary userInfo = nullptr)
      : name_(std::move(name)), object_(std::move(object)), userInfo_(std::move(userInfo)) {}

  const String& name() const noexcept { return name_; }
  const std::shared_ptr<Object>& object() const noexcept { return object_; }
  Dictionary userInfo() const noexcept { return userInfo_; }

 private:
  String name_;
  std::shared_ptr<Object> object_;
  Dictionary userInfo_;
};

}  // namespace QVPlatform
