#include <QVPlatform/Networking/Internal/TransferError.h>

namespace QVPlatform {
namespace {

/// For the failures that are found here and not by libcurl.
const char* textOf(URLErrorCode code) {
  switch (code) {
    case URLErrorCode::kUnsupportedURL:
      return "Not an http or https URL with a host.";
    case URLErrorCode::kNotCached:
      return "The answer is not cached and must not be loaded.";
    case URLErrorCode::kConnectionLost:
      return "The connection broke when the request had gone out, which is not sent again.";
    case URLErrorCode::kTooManyRedirects:
      return "The request was redirected too often.";
    case URLErrorCode::kBadServerResponse:
      return "The answer contradicts itself about its length.";
    case URLErrorCode::kResponseTooLarge:
      return "The answer is larger than the limit.";
    case URLErrorCode::kOutOfMemory:
      return "There is no memory left.";
    default:
      return "The transfer failed.";
  }
}

}  // namespace

URLErrorCode codeOf(CURLcode result) {
  switch (result) {
    case CURLE_URL_MALFORMAT:
      return URLErrorCode::kUnsupportedURL;
    case CURLE_COULDNT_RESOLVE_HOST:
    case CURLE_COULDNT_RESOLVE_PROXY:
      return URLErrorCode::kCannotFindHost;
    case CURLE_COULDNT_CONNECT:
    case CURLE_PROXY:
      return URLErrorCode::kCannotConnect;
    case CURLE_SSL_CONNECT_ERROR:
    case CURLE_SSL_CACERT_BADFILE:
    case CURLE_PEER_FAILED_VERIFICATION:
      return URLErrorCode::kSecureConnectionFailed;
    case CURLE_OPERATION_TIMEDOUT:
      return URLErrorCode::kTimedOut;
    case CURLE_GOT_NOTHING:
    case CURLE_PARTIAL_FILE:
    case CURLE_SEND_ERROR:
    case CURLE_RECV_ERROR:
      return URLErrorCode::kConnectionLost;
    case CURLE_WEIRD_SERVER_REPLY:
    case CURLE_UNSUPPORTED_PROTOCOL:  // of what the server speaks
    case CURLE_BAD_CONTENT_ENCODING:
      return URLErrorCode::kBadServerResponse;
    case CURLE_OUT_OF_MEMORY:  // also a line of the header that is beyond libcurl's own limit
      return URLErrorCode::kResponseTooLarge;
    default:
      return URLErrorCode::kUnknown;
  }
}

std::shared_ptr<Error> makeError(URLErrorCode code, const char* text) {
  return std::make_shared<Error>(kURLErrorDomain, static_cast<int>(code),
                                 text ? text : textOf(code));
}

}  // namespace QVPlatform
