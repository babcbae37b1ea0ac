#pragma once

#include <QVPlatform/Networking/HTTPHeaderFields.h>

#include <curl/curl.h>

#include <memory>

namespace QVPlatform {

struct FieldListDeleter {
  void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};
/// Lines of a request's header, as libcurl takes them.
using FieldList = std::unique_ptr<curl_slist, FieldListDeleter>;

/// The lines for a request with these fields: theirs, but for those that the transfer decides, and
/// the usual ones that they do not replace. Throws std::bad_alloc.
FieldList fieldList(const HTTPHeaderFields& fields);

}  // namespace QVPlatform
