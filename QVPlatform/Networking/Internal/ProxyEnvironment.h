#pragma once

#include <QVPlatform/Networking/URL.h>

#include <string>

namespace QVPlatform {

/// The proxies that the environment names at the moment that this is made, by libcurl's rules.
struct ProxyEnvironment {
  ProxyEnvironment();

  /// The proxy for a URL, "" where there is none to go through. libcurl reads it.
  const std::string& proxyFor(const URL& url) const {
    return url.hasScheme("https") ? forHTTPS : forHTTP;
  }

  std::string forHTTP;
  std::string forHTTPS;
  std::string exceptions;  // hosts that no proxy is for
};

}  // namespace QVPlatform
