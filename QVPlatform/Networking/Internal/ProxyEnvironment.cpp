#include <QVPlatform/Networking/Internal/ProxyEnvironment.h>

#include <cstdlib>
#include <initializer_list>

namespace QVPlatform {
namespace {

/// The value of the first variable that has one.
std::string firstOf(std::initializer_list<const char*> variables) {
  for (const char* variable : variables) {
    const char* const value = std::getenv(variable);
    if (value && *value) return value;
  }
  return {};
}

}  // namespace

/// $HTTP_PROXY is left out: in a CGI program it is what the client sent as its field "Proxy".
ProxyEnvironment::ProxyEnvironment()
    : forHTTP(firstOf({"http_proxy", "all_proxy", "ALL_PROXY"})),
      forHTTPS(firstOf({"https_proxy", "HTTPS_PROXY", "all_proxy", "ALL_PROXY"})),
      exceptions(firstOf({"no_proxy", "NO_PROXY"})) {}

}  // namespace QVPlatform
