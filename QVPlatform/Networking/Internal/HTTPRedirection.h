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

/// Makes of a request's content what goes to `next`, as the Fetch standard has it: a POST becomes a
/// GET after 301 and 302, whatever is no HEAD after 303; the fields that are about a body go with
/// it, and what proves who sends does not go to another origin than `url`.
void redirect(MutableURLRequest::Content& content, int status, const URL& url, const URL& next);

}  // namespace QVPlatform
