#pragma once

#include <QVPlatform/Networking/HTTPURLResponse.h>
#include <QVPlatform/Networking/URLRequest.h>

#include <optional>

namespace QVPlatform {

/// Whether a request can go there: an http or https URL with a host that is not empty.
bool isHTTPWithHost(const std::optional<URL>& url);

/// Whether the answer sends its request elsewhere: status 301, 302, 303, 307 or 308, and a place.
bool isRedirection(const HTTPURLResponse& response);

/// The place that a redirection from `url` names, be it relative or not. None if it is no http or
/// https URL with a host. What may not stand in a URL, but does in some answers, is escaped.
std::optional<URL> redirectedURL(const HTTPURLResponse& redirection, const URL& url);

/// Changes a request's content into what goes to `next`, as the Fetch standard has it. A POST
/// becomes a GET after 301 and 302, and so does any method but HEAD after 303; the body is dropped
/// then, and with it the fields that describe it. What proves who sends is dropped when `next` is
/// of another origin than `url`.
void redirect(MutableURLRequest::Content& content, int status, const URL& url, const URL& next);

}  // namespace QVPlatform
