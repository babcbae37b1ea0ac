#pragma once

#include <QVPlatform/Export.h>
#include <QVPlatform/Foundation/Data.h>
#include <QVPlatform/Foundation/Date.h>
#include <QVPlatform/Foundation/Error.h>
#include <QVPlatform/Foundation/HTTPURLResponse.h>
#include <QVPlatform/Foundation/URLRequest.h>

#include <cstddef>
#include <memory>

namespace QVPlatform {

/// Domain of the errors of URLConnection, whose codes are of URLErrorCode.
QVPLATFORM_EXPORT extern const String kURLErrorDomain;

enum class URLErrorCode : int {
  unknown = 1,
  /// No URL, one that is not http or https (that of a redirection included), or one without host.
  unsupportedURL,
  /// The cache policy forbids to load.
  notCached,
  cannotFindHost,
  cannotConnect,
  /// No TLS connection, or a certificate that is not to be trusted.
  secureConnectionFailed,
  timedOut,
  /// The connection broke before the answer was whole.
  connectionLost,
  tooManyRedirects,
  /// What came is not HTTP, or cannot be decoded.
  badServerResponse,
  /// The answer is longer than maximumResponseSize(), or its header is longer than 256 KiB.
  responseTooLarge,
};

/// HTTP transfers.
///
/// Connections are kept open and used again, whichever thread asks. Certificates are checked
/// against the system's store, or that of $SSL_CERT_FILE and $SSL_CERT_DIR; $http_proxy,
/// $https_proxy, $all_proxy and $no_proxy are honoured. Up to 20 redirections are followed, within
/// http and https. Answers may be compressed with gzip (RFC 1952). There are no cookies and no
/// cache.
///
/// Sent along with the request's own fields are Host, Accept, "Accept-Encoding: gzip" and, with a
/// body, Content-Length and the Content-Type of a form; a field of the request replaces Accept,
/// Accept-Encoding and Content-Type. Connection, Content-Length, Expect, Host and Transfer-Encoding
/// are the transfer's to decide: as fields of a request they are not sent.
///
/// Threads: all operations may be called from any thread, any number at a time. The process may
/// exit at any moment, transfers under way; it gets no signal from them, and its signal
/// dispositions stay as they are.
class QVPLATFORM_EXPORT URLConnection {
 public:
  /// Sends the request and blocks the calling thread until its answer is there.
  ///
  /// Result: the body, empty but not null when it is empty, whatever the status; null on failure,
  /// an answer that ends early included. `error` tells the failure, and is null on success.
  /// `response` is null when there was none; a failure leaves it there when the header had arrived.
  ///
  /// The transfer fails when the request's timeoutInterval() passes without a sign of life from the
  /// other side, connecting included, and after maximumTransferTime() in any case.
  static Data sendSynchronousRequest(const MutableURLRequest& request,
                                     std::shared_ptr<HTTPURLResponse>& response,
                                     std::shared_ptr<Error>& error);

  /// The greatest size of a body in bytes, after decompression; 64 MiB at first. A change counts
  /// for the transfers that begin after it.
  static std::size_t maximumResponseSize();
  static void setMaximumResponseSize(std::size_t bytes);

  /// The longest that a transfer may take, in seconds; 600 at first: what a server that keeps on
  /// sending a byte now and then can occupy a thread for. A change counts as above.
  static TimeInterval maximumTransferTime();
  static void setMaximumTransferTime(TimeInterval seconds);
};

}  // namespace QVPlatform
