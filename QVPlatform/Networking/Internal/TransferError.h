#pragma once

#include <QVPlatform/Networking/URLConnection.h>

#include <curl/curl.h>

#include <memory>

namespace QVPlatform {

/// What a result of libcurl, which is no success, comes to.
URLErrorCode codeOf(CURLcode result);

/// An error of URLConnection: with the text, or with the one that belongs to the code. Throws
/// std::bad_alloc.
std::shared_ptr<Error> makeError(URLErrorCode code, const char* text = nullptr);

}  // namespace QVPlatform
