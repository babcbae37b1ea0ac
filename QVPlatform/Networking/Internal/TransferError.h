#pragma once

#include <QVPlatform/Networking/URLConnection.h>

#include <curl/curl.h>

#include <memory>

namespace QVPlatform {

/// The code of the error that a failure of libcurl is told as.
URLErrorCode codeOf(CURLcode result);

/// An error of URLConnection. Without a text it has the one that belongs to the code. Throws
/// std::bad_alloc.
std::shared_ptr<Error> makeError(URLErrorCode code, const char* text = nullptr);

}  // namespace QVPlatform
