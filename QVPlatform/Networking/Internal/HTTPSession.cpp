#include <QVPlatform/Networking/Internal/HTTPSession.h>

#include <QVPlatform/Networking/Internal/ContentCoding.h>
#include <QVPlatform/Networking/Internal/HTTPRedirection.h>
#include <QVPlatform/Networking/Internal/TransferError.h>
#include <QVPlatform/Networking/Internal/TransferLibraries.h>
#include <QVPlatform/Networking/Internal/UsualFields.h>

#include <openssl/ssl.h>
#include <string.h>
#include <strings.h>

#include <algorithm>
#include <cstdlib>
#include <new>

namespace QVPlatform {
namespace {

using SteadyClock = std::chrono::steady_clock;
using Seconds = std::chrono::duration<TimeInterval>;

constexpr int kMaximumRedirections = 20;

/// As a duration that clock arithmetic cannot overflow with.
SteadyClock::duration durationOf(TimeInterval seconds) {
  constexpr TimeInterval kLongest = 1e8;
  return std::chrono::duration_cast<SteadyClock::duration>(Seconds(std::min(seconds, kLongest)));
}

bool isChunked(const HTTPURLResponse& response) {
  const String coding = response.valueForHTTPHeaderField("Transfer-Encoding");
  return !coding.isNull() && strcasestr(coding.UTF8String(), "chunked");
}

bool isClosureAlert(int what, int alert) {
  return what == SSL_CB_READ_ALERT && (alert & 0xFF) == SSL_AD_CLOSE_NOTIFY;
}

}  // namespace

HTTPSession::HTTPSession() {
  try {
    open();
  } catch (const std::bad_alloc&) {
    close();
    throw;
  }
}

HTTPSession::~HTTPSession() { close(); }

void HTTPSession::open() {
  proxies_ = initializeTransferLibraries();
  easy_ = curl_easy_init();
  multi_ = curl_multi_init();
  place_ = curl_url();
  if (!easy_ || !multi_ || !place_) throw std::bad_alloc();
  setConstantOptions();
}

void HTTPSession::close() {
  curl_easy_cleanup(easy_);
  curl_multi_cleanup(multi_);
  curl_url_cleanup(place_);
}

void HTTPSession::setConstantOptions() {
  set(CURLOPT_NOSIGNAL, 1L);
  // Giving up on a name that does not resolve must not wait for the resolver's own timeout.
  set(CURLOPT_QUICK_EXIT, 1L);
  set(CURLOPT_PROTOCOLS_STR, "http,https");
  // On a connection of HTTP/2 the other side may speak unasked.
  set(CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
  set(CURLOPT_PATH_AS_IS, 1L);
  set(CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L);
  set(CURLOPT_SSL_CTX_FUNCTION, &HTTPSession::onTLSContext);
  set(CURLOPT_SSL_CTX_DATA, this);
  set(CURLOPT_ERRORBUFFER, message_);
  set(CURLOPT_PREREQFUNCTION, &HTTPSession::onRequest);
  set(CURLOPT_PREREQDATA, this);
  // The lines of the header go to onBody(), too, before libcurl makes anything of them.
  set(CURLOPT_HEADER, 1L);
  set(CURLOPT_HEADERFUNCTION, &HTTPSession::onHeaderLine);
  set(CURLOPT_HEADERDATA, this);
  set(CURLOPT_WRITEFUNCTION, &HTTPSession::onBody);
  set(CURLOPT_WRITEDATA, this);
  set(CURLOPT_NOPROXY, proxies_->exceptions.c_str());
  sockets_.attachTo(easy_);
  placeText_.clear();
  proxy_ = nullptr;
  if (const char* file = std::getenv("SSL_CERT_FILE")) set(CURLOPT_CAINFO, file);
  if (const char* directory = std::getenv("SSL_CERT_DIR")) set(CURLOPT_CAPATH, directory);
}

HTTPSession::Outcome HTTPSession::send(const MutableURLRequest& request, Limits limits) {
  const Clock::time_point end = Clock::now() + durationOf(limits.transferTime);
  maximumBodySize_ = limits.responseSize;
  MutableURLRequest::Content content = request.content();
  URL url = *request.url();
  for (int left = kMaximumRedirections;; --left) {
    Outcome outcome = exchange(content, url, request.timeoutInterval(), end);
    if (!outcome.response || !isRedirection(*outcome.response)) return outcome;
    // A redirection that leads nowhere is not the answer to the request.
    if (outcome.error) return {nullptr, nullptr, outcome.error};
    auto next = redirectedURL(*outcome.response, url);
    if (!next) {
      return {nullptr, nullptr, makeError(URLErrorCode::kUnsupportedURL)};
    }
    if (left == 0) {
      return {nullptr, nullptr, makeError(URLErrorCode::kTooManyRedirects)};
    }
    redirect(content, outcome.response->statusCode(), url, *next);
    url = *std::move(next);
  }
}

HTTPSession::Outcome HTTPSession::exchange(const MutableURLRequest::Content& content,
                                           const URL& url, TimeInterval timeout,
                                           Clock::time_point end) {
  if (std::exchange(mustForgetFailures_, false)) {
    // libcurl counts how often a kept connection turned out to be dead, and the sixth time fails
    // the transfer instead of connecting again. Only this starts the count anew.
    curl_easy_reset(easy_);
    setConstantOptions();
  }
  const bool hasFields = !content.fields.entries().empty();
  const FieldList fields = hasFields ? fieldList(content.fields) : nullptr;
  set(CURLOPT_HTTPHEADER, hasFields ? fields.get() : usualFields());
  setURL(url);
  setMethodAndBody(content.method, content.body);
  dropDoubtfulConnections();
  prepareForAnswer();
  CURLcode result = run(timeout, end);
  mustForgetFailures_ = result != CURLE_OK || requests_ > 1;
  isUsable_ = isUsable_ && result != CURLE_OUT_OF_MEMORY && result != CURLE_FAILED_INIT;
  Outcome outcome;
  outcome.response = takeResponse(url.absoluteString());
  hasDoubtfulConnections_ = isFollowedByMore(outcome.response.get(), url);
  if (result == CURLE_OK && requests_ == 1) {
    sockets_.endRequest(header_.totalSize() + body_.size());
  }
  // A connection that is closed within the header is the end of the header to libcurl.
  if (result == CURLE_OK && !outcome.response) result = CURLE_GOT_NOTHING;
  if (result == CURLE_OK && isCutShort(*outcome.response, url, content.method)) {
    result = CURLE_PARTIAL_FILE;
  }
  if (result == CURLE_OK && header_.hasContentEncoding()) result = decodeBody(*outcome.response);
  if (result == CURLE_OK) {
    outcome.body = Data(std::exchange(body_, {}));
  } else {
    outcome.error = errorFor(result);
    body_ = {};
  }
  return outcome;
}

/// libcurl gets the origin for its URL, and the rest as the request's target: so what was given is
/// what goes out, and libcurl does not take apart and put together what it need not know. A proxy
/// gets the whole URL, but for https, which goes through a tunnel.
void HTTPSession::setURL(const URL& url) {
  const std::string& proxy = proxies_->proxyFor(url);
  if (std::exchange(proxy_, &proxy) != &proxy) set(CURLOPT_PROXY, proxy.c_str());
  if (!proxy.empty() && url.hasScheme("http")) {
    setPlace(url.absoluteString().view());
    set(CURLOPT_REQUEST_TARGET, nullptr);
    return;
  }
  setPlace(url.origin());
  const std::string_view rest = url.pathAndQuery();
  target_.assign(rest.starts_with('/') ? "" : "/").append(rest);
  set(CURLOPT_REQUEST_TARGET, target_.c_str());
}

/// Most requests go where the one before went: then libcurl gets the URL taken apart already.
/// Copies that it makes of one lose the zone of an address before version 8.3, so one with a
/// percent sign is left to each transfer to read, and so is what libcurl cannot read, to tell why.
void HTTPSession::setPlace(std::string_view text) {
  if (placeText_ == text) return;
  placeText_ = text;
  set(CURLOPT_URL, placeText_.c_str());
  const bool isRead =
      text.find('%') == std::string_view::npos &&
      curl_url_set(place_, CURLUPART_URL, placeText_.c_str(), CURLU_PATH_AS_IS) == CURLUE_OK;
  set(CURLOPT_CURLU, isRead ? place_ : nullptr);
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
  mayBeRepeated_ = (name == "GET" || name == "HEAD") && body.isNull();
}

/// The fields of a request that has none of its own.
curl_slist* HTTPSession::usualFields() {
  const unsigned version = UsualFields::version();
  if (!usualFields_ || usualFieldsVersion_ != version) {
    usualFields_ = fieldList({});
    usualFieldsVersion_ = version;
  }
  return usualFields_.get();
}

/// All of them at once, by way of the handle that keeps them: it is seldom that one is in doubt.
void HTTPSession::dropDoubtfulConnections() {
  if (sockets_.beginRequest() && !hasDoubtfulConnections_) return;
  hasDoubtfulConnections_ = false;
  curl_multi_cleanup(multi_);
  multi_ = curl_multi_init();
  if (!multi_) throw std::bad_alloc();
  sockets_.beginRequest();
}

void HTTPSession::prepareForAnswer() {
  requests_ = 0;
  failure_.reset();
  body_.clear();
  header_.clear();
  message_[0] = '\0';
  isInHeader_ = true;
  isWithinLine_ = false;
  isEndedByAlert_ = false;
}

CURLcode HTTPSession::run(TimeInterval timeout, Clock::time_point end) {
  if (curl_multi_add_handle(multi_, easy_) != CURLM_OK) return CURLE_FAILED_INIT;
  const CURLcode result = waitForResult(timeout, end);
  // A connection whose transfer is not over is closed here, any other one is kept.
  curl_multi_remove_handle(multi_, easy_);
  return result;
}

CURLcode HTTPSession::waitForResult(TimeInterval timeout, Clock::time_point end) {
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
    if (curl_multi_poll(multi_, nullptr, 0, static_cast<int>(std::min(wait, longest).count()),
                        &readySockets) != CURLM_OK) {
      return CURLE_FAILED_INIT;
    }
  }
}

int HTTPSession::statusCode() const {
  long status = 0;
  curl_easy_getinfo(easy_, CURLINFO_RESPONSE_CODE, &status);
  return static_cast<int>(status);
}

std::shared_ptr<HTTPURLResponse> HTTPSession::takeResponse(const String& url) {
  if (isInHeader_) return nullptr;
  return std::make_shared<HTTPURLResponse>(url, statusCode(), header_.text());
}

/// Whether an answer that has no body came with bytes behind it, which libcurl has read and passed
/// over: then the other side may have more to say. Over TLS the bytes cannot be told apart.
bool HTTPSession::isFollowedByMore(const HTTPURLResponse* response, const URL& url) const {
  return response && body_.empty() && url.hasScheme("http") &&
         sockets_.haveReceivedMoreThan(header_.totalSize()) && !isChunked(*response);
}

/// Where only the end of the connection tells the end of a body, one that came over TLS is whole if
/// the server said that it ends; anybody on the way can bring about the rest. libcurl does without.
bool HTTPSession::isCutShort(const HTTPURLResponse& response, const URL& url,
                             const String& method) const {
  if (header_.hasContentLength() || isEndedByAlert_ || !url.hasScheme("https")) return false;
  const bool hasBody =
      method != String("HEAD") && response.statusCode() != 204 && response.statusCode() != 304;
  return hasBody && !isChunked(response);
}

/// Here and not by libcurl, to which compressed data that ends early is whole. A coding that was
/// not asked for is the receiver's: many servers name one that is none.
CURLcode HTTPSession::decodeBody(const HTTPURLResponse& response) {
  const String coding = response.valueForHTTPHeaderField("Content-Encoding");
  const auto decode = ContentCoding::decoderOf(coding);
  if (body_.empty() || !decode) return CURLE_OK;
  const std::string encoded = std::exchange(body_, {});
  switch (decode(encoded, maximumBodySize_, body_)) {
    case DecodingResult::kWhole:
      return CURLE_OK;
    case DecodingResult::kTooLarge:
      fail(URLErrorCode::kResponseTooLarge);
      break;
    case DecodingResult::kMalformed:
      break;
  }
  return CURLE_BAD_CONTENT_ENCODING;
}

std::shared_ptr<Error> HTTPSession::errorFor(CURLcode result) const {
  if (failure_) return makeError(*failure_);
  return makeError(codeOf(result), message_[0] ? message_ : curl_easy_strerror(result));
}

/// Called when a connection is there and the request is about to go out; a second time when libcurl
/// wants to send it again, because the kept connection on which it went out has died.
bool HTTPSession::allowsRequest() {
  if (++requests_ == 1) return true;
  if (requests_ == 2 && mayBeRepeated_ && !sockets_.wasClosedWithinAnswer()) return true;
  fail(URLErrorCode::kConnectionLost);
  return false;
}

/// Before version 8.1 libcurl writes where the last line of an earlier answer was, if the header
/// begins with what goes on with a line; so that must not get as far.
bool HTTPSession::allowsHeaderLine(std::string_view part) {
  if (std::exchange(isWithinLine_, true) || !header_.isContinuationOfNothing(part)) return true;
  fail(URLErrorCode::kBadServerResponse);
  return false;
}

std::size_t HTTPSession::receiveHeaderLine(std::string_view line) try {
  isWithinLine_ = false;
  const auto failure = header_.receive(line);
  // Behind an interim answer comes another header.
  isInHeader_ = isInHeader_ && (!header_.isComplete() || statusCode() < 200);
  if (failure) fail(*failure);
  return failure ? 0 : line.size();
} catch (const std::bad_alloc&) {
  fail(URLErrorCode::kOutOfMemory);  // it must not fly through libcurl
  return 0;
}

std::size_t HTTPSession::receiveBody(std::string_view bytes) try {
  if (isInHeader_) return allowsHeaderLine(bytes) ? bytes.size() : 0;
  if (bytes.size() > maximumBodySize_ - body_.size()) {
    fail(URLErrorCode::kResponseTooLarge);
    return 0;
  }
  body_.append(bytes);
  return bytes.size();
} catch (const std::bad_alloc&) {
  fail(URLErrorCode::kOutOfMemory);
  return 0;
}

CURLcode HTTPSession::onTLSContext(CURL*, void* context, void* session) {
  auto* const tls = static_cast<SSL_CTX*>(context);
  SSL_CTX_set_app_data(tls, session);
  SSL_CTX_set_info_callback(tls, [](const SSL* connection, int what, int alert) {
    if (!isClosureAlert(what, alert)) return;
    void* const owner = SSL_CTX_get_app_data(SSL_get_SSL_CTX(connection));
    static_cast<HTTPSession*>(owner)->isEndedByAlert_ = true;
  });
  return CURLE_OK;
}

int HTTPSession::onRequest(void* session, char*, char*, int, int) {
  return static_cast<HTTPSession*>(session)->allowsRequest() ? CURL_PREREQFUNC_OK
                                                             : CURL_PREREQFUNC_ABORT;
}

std::size_t HTTPSession::onHeaderLine(char* bytes, std::size_t, std::size_t size, void* session) {
  return static_cast<HTTPSession*>(session)->receiveHeaderLine({bytes, size});
}

std::size_t HTTPSession::onBody(char* bytes, std::size_t, std::size_t size, void* session) {
  return static_cast<HTTPSession*>(session)->receiveBody({bytes, size});
}

}  // namespace QVPlatform
