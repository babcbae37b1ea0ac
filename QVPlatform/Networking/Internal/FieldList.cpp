#include <QVPlatform/Networking/Internal/FieldList.h>

#include <QVPlatform/Networking/Internal/ContentCoding.h>
#include <QVPlatform/Networking/Internal/UsualFields.h>

#include <strings.h>

#include <algorithm>
#include <array>
#include <new>
#include <string>

namespace QVPlatform {
namespace {

void append(FieldList& list, const std::string& line) {
  curl_slist* const grown = curl_slist_append(list.get(), line.c_str());
  if (!grown) throw std::bad_alloc();
  static_cast<void>(list.release());
  list.reset(grown);
}

bool isDecidedByTransfer(const String& field) {
  constexpr std::array kFields{"Connection", "Content-Length", "Expect", "Host",
                               "Transfer-Encoding"};
  return std::any_of(kFields.begin(), kFields.end(),
                     [&](const char* name) { return strcasecmp(field.UTF8String(), name) == 0; });
}

}  // namespace

FieldList fieldList(const HTTPHeaderFields& fields) {
  FieldList list;
  for (const auto& [field, value] : fields.entries()) {
    if (isDecidedByTransfer(field)) continue;
    // "Name:" would mean to libcurl that the field is not wanted, "Name;" that it is empty.
    const char* const separator = value.isEmpty() ? ";" : ": ";
    append(list, std::string(field.view()).append(separator).append(value.view()));
  }
  const auto appendUsual = [&](const char* field, const String& value) {
    if (value.isEmpty() || !fields.value(field).isNull()) return;
    append(list, std::string(field).append(": ").append(value.view()));
  };
  appendUsual("User-Agent", UsualFields::userAgent());
  appendUsual("Accept-Language", UsualFields::acceptLanguage());
  appendUsual("Accept-Encoding", ContentCoding::accepted());
  // A server that knows nothing of "Expect: 100-continue" would cost every large body a second.
  append(list, "Expect:");
  return list;
}

}  // namespace QVPlatform
