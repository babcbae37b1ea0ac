#pragma once

#include "Test.h"

namespace QVTest {

/// A new self-signed certificate and its key, in PEM files that are removed at the end.
class Certificate {
 public:
  /// `subject`: what it is for, as "IP:127.0.0.1" or "DNS:example.org".
  explicit Certificate(const std::string& subject = "IP:127.0.0.1") {
    std::string pattern = (std::filesystem::temp_directory_path() / "certificateXXXXXX").string();
    if (!mkdtemp(pattern.data())) throw std::runtime_error("no temporary directory");
    directory_ = pattern;
    const std::string command =
        "openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -days 2 "
        "-subj /CN=test -addext subjectAltName=" +
        subject + " -out " + file() + " -keyout " + keyFile() + " 2>/dev/null";
    if (std::system(command.c_str()) != 0) throw std::runtime_error("no certificate");
  }
  ~Certificate() {
    std::error_code ignored;
    std::filesystem::remove_all(directory_, ignored);
  }
  Certificate(const Certificate&) = delete;
  Certificate& operator=(const Certificate&) = delete;

  std::string file() const { return (directory_ / "certificate.pem").string(); }
  std::string keyFile() const { return (directory_ / "key.pem").string(); }

 private:
  std::filesystem::path directory_;
};

}  // namespace QVTest
