#pragma once

#include <QVPlatform/Export.h>
#include <QVPlatform/Foundation/Object.h>

namespace QVPlatform {

/// What went wrong: a code within a domain, and a sentence for people.
///
/// Immutable: safe to read from any thread.
class QVPLATFORM_EXPORT Error : public Object {
 public:
  Error(String domain, int code, String localizedDescription);

  /// Names the family of codes ("QVURLErrorDomain").
  String domain() const { return domain_; }
  /// The code, whose meaning the domain gives.
  int code() const noexcept { return code_; }
  /// A sentence for people, in English.
  String localizedDescription() const { return localizedDescription_; }

  /// Domain, code and sentence.
  String description() const override;

 private:
  const String domain_;
  const int code_;
  const String localizedDescription_;
};

}  // namespace QVPlatform
