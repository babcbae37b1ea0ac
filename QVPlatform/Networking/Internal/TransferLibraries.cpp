#include <QVPlatform/Networking/Internal/TransferLibraries.h>

#include <QVPlatform/Foundation/ForkMutex.h>
#include <QVPlatform/Foundation/Lasting.h>

#include <curl/curl.h>
#include <openssl/crypto.h>

#include <optional>

namespace QVPlatform {

/// OpenSSL would tear itself down when the process exits, under transfers that go on meanwhile; so
/// it is told not to, before anything here sets it up. That takes milliseconds, so a fork must not
/// come in between.
const ProxyEnvironment* initializeTransferLibraries() {
  struct Initialization {
    ForkMutex mutex;
    std::optional<const ProxyEnvironment> proxies QV_GUARDED_BY(mutex);
  };
  auto& initialization = Lasting<Initialization>::object();
  const Lock lock(initialization.mutex);
  if (!initialization.proxies) {
    OPENSSL_init_crypto(OPENSSL_INIT_NO_ATEXIT, nullptr);
    curl_global_init(CURL_GLOBAL_DEFAULT);
    initialization.proxies.emplace();
  }
  return &*initialization.proxies;
}

}  // namespace QVPlatform
