#pragma once

#include "Test.h"

namespace QVTest {

/// A new self-signed certificate and its key, in PEM files that are removed at the end.
class Certificate {
 public:
  /// `subject`: what it is for, as "IP:127.0.0.1" or "DNS:example.org".
  explicit Certificate(const std::string& subject = "IP:127.0.0.1") {
    const std::string command =
        "openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -days 2 "
        "-subj /CN=test -addext subjectAltName=" +
        subject + " -out " + file() + " -keyout " + keyFile() + " 2>/dev/null";
    if (std::system(command.c_str()) != 0) throw std::runtime_error("no certificate");
  }

  std::string file() const { return (directory_.path() / "certificate.pem").string(); }
  std::string keyFile() const { return (directory_.path() / "key.pem").string(); }

 private:
  const TemporaryDirectory directory_;
};

}  // namespace QVTest
