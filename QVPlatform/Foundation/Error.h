#pragma once

#include <QVPlatform/Export.h>
#include <QVPlatform/Foundation/Coding.h>
#include <QVPlatform/Foundation/Object.h>

namespace QVPlatform {

/// What went wrong: a code within a domain, and a sentence for people.
///
/// Immutable once it is set up: safe to read from any thread.
class QVPLATFORM_EXPORT Error : public Object, public Coding {
 public:
  /// A bare one, for initWithCoder().
  Error() = default;
  Error(String domain, int code, String localizedDescription);

  /// Names the family of codes ("QVURLErrorDomain").
  String domain() const { return domain_; }
  /// The code, whose meaning the domain gives.
  int code() const noexcept { return code_; }
  /// A sentence for people, in English.
  String localizedDescription() const { return localizedDescription_; }

  /// Domain, code and sentence.
  String description() const override;

  void encodeWithCoder(KeyedArchiver& coder) const override;
  /// "NSError", as the format has it.
  String classNameForCoder() const override;
  void initWithCoder(KeyedUnarchiver& coder) override;

 private:
  String domain_;
  int code_ = 0;
  String localizedDescription_;
};

}  // namespace QVPlatform
