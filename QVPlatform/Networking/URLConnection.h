#pragma once

#include <QVPlatform/Export.h>
#include <QVPlatform/Foundation/Data.h>
#include <QVPlatform/Foundation/Date.h>
#include <QVPlatform/Foundation/Error.h>
#include <QVPlatform/Networking/HTTPURLResponse.h>
#include <QVPlatform/Networking/URLRequest.h>

#include <cstddef>
#include <memory>

namespace QVPlatform {

/// Domain of the errors of URLConnection, whose codes are of URLErrorCode.
QVPLATFORM_EXPORT extern const String kURLErrorDomain;

enum class URLErrorCode : int {
  kUnknown = 1,
  /// No URL, one that is not http or https (that of a redirection included), or one without host.
  kUnsupportedURL,
  /// The cache policy forbids to load.
  kNotCached,
  kCannotFindHost,
  kCannotConnect,
  /// No TLS connection, or a certificate that is not to be trusted.
  kSecureConnectionFailed,
  kTimedOut,
  /// The connection broke before the answer was whole.
  kConnectionLost,
  kTooManyRedirects,
  /// What came is not HTTP, cannot be decoded, or names two different lengths.
  kBadServerResponse,
  /// The answer is longer than maximumResponseSize(), or its header is longer than 256 KiB.
  kResponseTooLarge,
  /// Memory ran out.
  kOutOfMemory,
};

/// HTTP transfers, over HTTP/1.1.
///
/// Certificates are checked against the system's store, or that of $SSL_CERT_FILE and
/// $SSL_CERT_DIR. $http_proxy, $https_proxy, $all_proxy and $no_proxy are honoured, as the first
/// transfer of the process finds them: a change that comes later has no effect. Answers may come in
/// the content codings that "Accept-Encoding" names; one in another coding, which nobody asked for,
/// is handed over as it came. There are no cookies and no cache.
///
/// Path and query go out as they stand in the URL, dot segments included; a proxy for http gets
/// them as libcurl writes them. Up to 20 redirections (301, 302, 303, 307, 308) are followed,
/// within http and https. By the rules of the Fetch standard a POST becomes a GET after 301, 302
/// and 303, and Authorization and Cookie do not go to another origin.
///
/// A user and a password in a URL go out as Basic authentication (RFC 7617).
///
/// Connections are kept open and used again, whichever thread asks. One that the other side has
/// closed, or on which it has said something unasked, is not used again. When a kept connection
/// breaks after a request went out and before anything of its answer came, a GET or HEAD without a
/// body goes out once more, on a new connection (RFC 9110, 9.2.2), and any other request fails;
/// whether the server has seen the first one, nobody can know. What limits this: what the server
/// says unasked while the request is on its way, or in one piece with a chunked answer or, over
/// https, with one that has no body, counts as its answer; over https any message on the breaking
/// connection, the alert that closes it included, counts as the beginning of one.
///
/// Sent along with the request's own fields are Host, Accept, Accept-Encoding, Accept-Language,
/// User-Agent and, with a body, Content-Length and the Content-Type of a form; a
/// field of the request replaces any of them but Host and Content-Length. Connection,
/// Content-Length, Expect, Host and Transfer-Encoding are the transfer's to decide: as fields of a
/// request they are not sent.
///
/// Threads: all operations may be called from any thread, any number at a time. The process may
/// exit at any moment, transfers under way; it gets no signal from them, and its signal
/// dispositions stay as they are. After a fork the child has connections of its own.
class QVPLATFORM_EXPORT URLConnection {
 public:
  /// Sends the request and blocks the calling thread until its answer is there.
  ///
  /// Result: the body, empty but not null when it is empty, whatever the status; null on failure,
  /// an answer that ends early included. `error` tells the failure, and is null on success (and
  /// where no memory is left to tell). `response` is null when there was none; a failure leaves it
  /// there when the header had arrived.
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

  /// User-Agent of the requests that have none of their own. At first the application's identifier
  /// and version and the kit's, "org.example.player/2.1 QVCore/4.7.4", which are to be set before
  /// the first request goes out; null sets that again, "" sends none. What cannot be a field's
  /// value (isHTTPFieldValue()) changes nothing.
  static String userAgent();
  static void setUserAgent(const String& text);
  /// The same for Accept-Language; at first "fr-CA,fr;q=0.9" for the locale fr_CA of $LC_ALL,
  /// $LC_MESSAGES or $LANG, and "en" where these name no language.
  static String acceptLanguage();
  static void setAcceptLanguage(const String& text);
};

}  // namespace QVPlatform
