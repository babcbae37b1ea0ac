#include <QVPlatform/Foundation/Internal/Gzip.h>
#include <QVPlatform/Foundation/Internal/HTTPSession.h>

#include <openssl/crypto.h>
#include <strings.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdlib>

namespace QVPlatform {
namespace {

using Clock = std::chrono::steady_clock;
using Seconds = std::chrono::duration<TimeInterval>;

constexpr long kMaximumRedirections = 20;
constexpr std::size_t kMaximumHeaderSize = 256 * 1024;
constexpr std::string_view kContentEncoding = "Content-Encoding";
constinit String::Literal acceptEncodingText{"Accept-Encoding"};

struct FieldListDeleter {
  void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};
using FieldList = std::unique_ptr<curl_slist, FieldListDeleter>;

/// OpenSSL would tear itself down when the process exits, under transfers that go on meanwhile; so
/// it is told not to, before anything here sets it up.
void initializeLibraries() {
  [[maybe_unused]] static const bool initialized = [] {
    OPENSSL_init_crypto(OPENSSL_INIT_NO_ATEXIT, nullptr);
    return curl_global_init(CURL_GLOBAL_DEFAULT) == CURLE_OK;
  }();
}

/// As a duration that clock arithmetic cannot overflow with.
Clock::duration durationOf(TimeInterval seconds) {
  constexpr TimeInterval kLongest = 1e8;
  return std::chrono::duration_cast<Clock::duration>(Seconds(std::min(seconds, kLongest)));
}

void append(FieldList& list, const char* line) {
  if (curl_slist* grown = curl_slist_append(list.get(), line)) {
    static_cast<void>(list.release());
    list.reset(grown);
  }
}

bool isDecidedByTransfer(const String& field) {
  constexpr std::array kFields{"Connection", "Content-Length", "Expect", "Host",
                               "Transfer-Encoding"};
  return std::any_of(kFields.begin(), kFields.end(),
                     [&](const char* name) { return strcasecmp(field.UTF8String(), name) == 0; });
}

FieldList fieldList(const HTTPHeaderFields& fields) {
  FieldList list;
  for (const auto& [field, value] : fields.entries()) {
    if (isDecidedByTransfer(field)) continue;
    // "Name:" would mean to libcurl that the field is not wanted, "Name;" that it is empty.
    const char* const separator = value.isEmpty() ? ";" : ": ";
    append(list, std::string(field.view()).append(separator).append(value.view()).c_str());
  }
  if (fields.value(String(acceptEncodingText)).isNull()) append(list, "Accept-Encoding: gzip");
  // A server that knows nothing of "Expect: 100-continue" would cost every large body a second.
  append(list, "Expect:");
  return list;
}

/// Those of a request that has none of its own.
curl_slist* usualFields() {
  static curl_slist* const fields = fieldList({}).release();
  return fields;
}

bool isFieldLine(std::string_view line, std::string_view name) {
  return line.size() > name.size() && line[name.size()] == ':' &&
         strncasecmp(line.data(), name.data(), name.size()) == 0;
}

URLErrorCode codeOf(CURLcode result) {
  switch (result) {
    case CURLE_URL_MALFORMAT:
      return URLErrorCode::unsupportedURL;
    case CURLE_COULDNT_RESOLVE_HOST:
    case CURLE_COULDNT_RESOLVE_PROXY:
      return URLErrorCode::cannotFindHost;
    case CURLE_COULDNT_CONNECT:
    case CURLE_PROXY:
      return URLErrorCode::cannotConnect;
    case CURLE_SSL_CONNECT_ERROR:
    case CURLE_SSL_CACERT_BADFILE:
    case CURLE_PEER_FAILED_VERIFICATION:
      return URLErrorCode::secureConnectionFailed;
    case CURLE_OPERATION_TIMEDOUT:
      return URLErrorCode::timedOut;
    case CURLE_GOT_NOTHING:
    case CURLE_PARTIAL_FILE:
    case CURLE_SEND_ERROR:
    case CURLE_RECV_ERROR:
      return URLErrorCode::connectionLost;
    case CURLE_TOO_MANY_REDIRECTS:
      return URLErrorCode::tooManyRedirects;
    case CURLE_WEIRD_SERVER_REPLY:
    case CURLE_BAD_CONTENT_ENCODING:
    case CURLE_HTTP2:
    case CURLE_HTTP2_STREAM:
      return URLErrorCode::badServerResponse;
    case CURLE_WRITE_ERROR:    // what the receiving and decoding functions below refused
    case CURLE_OUT_OF_MEMORY:  // also a line of the header that is beyond libcurl's own limit
      return URLErrorCode::responseTooLarge;
    default:
      return URLErrorCode::unknown;
  }
}

}  // namespace

HTTPSession::HTTPSession() {
  initializeLibraries();
  // Where one is null for want of memory, libcurl refuses to run and the transfer fails.
  easy_ = curl_easy_init();
  multi_ = curl_multi_init();
  if (easy_) setConstantOptions();
}

HTTPSession::~HTTPSession() {
  curl_easy_cleanup(easy_);
  curl_multi_cleanup(multi_);
}

void HTTPSession::setConstantOptions() {
  set(CURLOPT_NOSIGNAL, 1L);
  // Giving up on a name that does not resolve must not wait for the resolver's own timeout.
  set(CURLOPT_QUICK_EXIT, 1L);
  set(CURLOPT_PROTOCOLS_STR, "http,https");
  set(CURLOPT_REDIR_PROTOCOLS_STR, "http,https");
  set(CURLOPT_FOLLOWLOCATION, 1L);
  set(CURLOPT_MAXREDIRS, kMaximumRedirections);
  set(CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L);
  set(CURLOPT_ERRORBUFFER, message_);
  set(CURLOPT_HEADERFUNCTION, &HTTPSession::onHeaderLine);
  set(CURLOPT_HEADERDATA, this);
  set(CURLOPT_WRITEFUNCTION, &HTTPSession::onBody);
  set(CURLOPT_WRITEDATA, this);
  if (const char* file = std::getenv("SSL_CERT_FILE")) set(CURLOPT_CAINFO, file);
  if (const char* directory = std::getenv("SSL_CERT_DIR")) set(CURLOPT_CAPATH, directory);
}

HTTPSession::Outcome HTTPSession::send(const MutableURLRequest& request, Limits limits) {
  if (hasConnected_) {
    // libcurl counts how often a kept connection turned out to be dead, and the sixth time fails
    // the transfer instead of connecting again. Only this starts the count anew.
    curl_easy_reset(easy_);
    setConstantOptions();
  }
  const MutableURLRequest::Content content = request.content();
  const bool hasFields = !content.fields.entries().empty();
  const FieldList fields = hasFields ? fieldList(content.fields) : nullptr;
  set(CURLOPT_URL, request.url()->absoluteString().UTF8String());
  set(CURLOPT_HTTPHEADER, hasFields ? fields.get() : usualFields());
  setMethodAndBody(content.method, content.body);
  body_.clear();
  maximumBodySize_ = limits.responseSize;
  headersSize_ = 0;
  header_.clear();
  headerIsComplete_ = false;
  bodyIsEncoded_ = false;
  message_[0] = '\0';

  CURLcode result = run(request.timeoutInterval(), limits.transferTime);
  long connections = 0;
  curl_easy_getinfo(easy_, CURLINFO_NUM_CONNECTS, &connections);
  hasConnected_ = connections > 0;
  Outcome outcome;
  outcome.response = takeResponse(request.url()->absoluteString());
  // A connection that is closed within the header is the end of the header to libcurl.
  if (result == CURLE_OK && !outcome.response) result = CURLE_GOT_NOTHING;
  if (result == CURLE_OK && bodyIsEncoded_) result = decodeBody(*outcome.response);
  if (result == CURLE_OK) {
    outcome.body = Data(std::exchange(body_, {}));
  } else {
    outcome.error = errorFor(result);
    body_ = {};
  }
  return outcome;
}

void HTTPSession::setMethodAndBody(const String& method, const Data& body) {
  const std::string_view name = method.view();
  const char* usual = "GET";
  if (name == "HEAD") {
    set(CURLOPT_NOBODY, 1L);
    usual = "HEAD";
  } else if (name == "POST" || !body.isNull()) {
    set(CURLOPT_POST, 1L);
    set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body.view().size()));
    set(CURLOPT_POSTFIELDS, body.isNull() ? "" : body.view().data());
    usual = "POST";
  } else {
    set(CURLOPT_HTTPGET, 1L);
  }
  set(CURLOPT_CUSTOMREQUEST, name == usual ? nullptr : method.UTF8String());
}

CURLcode HTTPSession::run(TimeInterval timeout, TimeInterval transferTime) {
  if (curl_multi_add_handle(multi_, easy_) != CURLM_OK) return CURLE_FAILED_INIT;
  const CURLcode result = waitForResult(timeout, transferTime);
  // A connection whose transfer is not over is closed here, any other one is kept.
  curl_multi_remove_handle(multi_, easy_);
  return result;
}

CURLcode HTTPSession::waitForResult(TimeInterval timeout, TimeInterval transferTime) {
  const Clock::time_point end = Clock::now() + durationOf(transferTime);
  Clock::time_point progress;
  for (int readySockets = 1;;) {
    int running = 0;
    if (curl_multi_perform(multi_, &running) != CURLM_OK) return CURLE_FAILED_INIT;
    if (running == 0) {
      int left = 0;
      const CURLMsg* message = curl_multi_info_read(multi_, &left);
      return message ? message->data.result : CURLE_FAILED_INIT;
    }
    // A socket became ready: the name was resolved, the other side took or sent something.
    const Clock::time_point now = Clock::now();
    if (readySockets > 0) progress = now;
    const Clock::time_point deadline = std::min(progress + durationOf(timeout), end);
    if (now >= deadline) return CURLE_OPERATION_TIMEDOUT;
    const auto wait = std::chrono::ceil<std::chrono::milliseconds>(deadline - now);
    const auto longest = std::chrono::milliseconds(std::chrono::hours(1));
    curl_multi_poll(multi_, nullptr, 0, static_cast<int>(std::min(wait, longest).count()),
                    &readySockets);
  }
}

std::shared_ptr<HTTPURLResponse> HTTPSession::takeResponse(const String& requestedURL) {
  long status = 0;
  const char* url = "";
  curl_easy_getinfo(easy_, CURLINFO_RESPONSE_CODE, &status);
  if (!headerIsComplete_ || status < 200) return nullptr;
  curl_easy_getinfo(easy_, CURLINFO_EFFECTIVE_URL, &url);
  return std::make_shared<HTTPURLResponse>(requestedURL.view() == url ? requestedURL : String(url),
                                           static_cast<int>(status), header_);
}

/// Here and not by libcurl, to which compressed data that ends early is whole.
CURLcode HTTPSession::decodeBody(const HTTPURLResponse& response) {
  const String coding = response.valueForHTTPHeaderField(String(kContentEncoding));
  const auto isCoding = [&](const char* name) {
    return strcasecmp(coding.UTF8String(), name) == 0;
  };
  if (body_.empty() || coding.isEmpty() || isCoding("identity")) return CURLE_OK;
  if (!isCoding("gzip") && !isCoding("x-gzip")) return CURLE_BAD_CONTENT_ENCODING;
  const std::string compressed = std::exchange(body_, {});
  switch (gunzip(compressed, maximumBodySize_, body_)) {
    case GzipResult::whole:
      return CURLE_OK;
    case GzipResult::tooLarge:
      return CURLE_WRITE_ERROR;
    case GzipResult::malformed:
      break;
  }
  return CURLE_BAD_CONTENT_ENCODING;
}

std::shared_ptr<Error> HTTPSession::errorFor(CURLcode result) const {
  URLErrorCode code = codeOf(result);
  if (result == CURLE_UNSUPPORTED_PROTOCOL) {
    // Of the server's protocol if there was no header, else of the one that it redirects to.
    code = headerIsComplete_ ? URLErrorCode::unsupportedURL : URLErrorCode::badServerResponse;
  }
  const char* text = message_[0] ? message_ : curl_easy_strerror(result);
  if (code == URLErrorCode::responseTooLarge) text = "The answer is larger than the limit.";
  return std::make_shared<Error>(kURLErrorDomain, static_cast<int>(code), text);
}

std::size_t HTTPSession::receiveHeaderLine(std::string_view line) try {
  headersSize_ += line.size();
  if (headersSize_ > kMaximumHeaderSize) return 0;
  if (line.starts_with("HTTP/")) {
    header_.clear();
    headerIsComplete_ = false;
    bodyIsEncoded_ = false;
  }
  // What follows a complete header is the trailer of a body.
  if (!headerIsComplete_) {
    header_.append(line);
    bodyIsEncoded_ = bodyIsEncoded_ || isFieldLine(line, kContentEncoding);
  }
  if (line == "\r\n" || line == "\n") headerIsComplete_ = true;
  return line.size();
} catch (const std::bad_alloc&) {
  return 0;  // as below
}

std::size_t HTTPSession::receiveBody(std::string_view bytes) try {
  if (bytes.size() > maximumBodySize_ - body_.size()) return 0;
  body_.append(bytes);
  return bytes.size();
} catch (const std::bad_alloc&) {
  return 0;  // it must not fly through libcurl; the transfer fails as if the limit were reached
}

std::size_t HTTPSession::onHeaderLine(char* bytes, std::size_t, std::size_t size, void* session) {
  return static_cast<HTTPSession*>(session)->receiveHeaderLine({bytes, size});
}

std::size_t HTTPSession::onBody(char* bytes, std::size_t, std::size_t size, void* session) {
  return static_cast<HTTPSession*>(session)->receiveBody({bytes, size});
}

}  // namespace QVPlatform
