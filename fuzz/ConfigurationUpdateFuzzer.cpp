#include "ConfigurationUpdateFuzzer.h"

#include <QVCore/QVDebug.h>
#include <QVPlatform/Application.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>

/// Each update that is stored goes to the disk: give the fuzzer a fast one by $TMPDIR.
extern "C" int LLVMFuzzerInitialize(int*, char***) {
  std::string pattern = (std::filesystem::temp_directory_path() / "qvcore-XXXXXX").string();
  if (mkdtemp(pattern.data()) == nullptr) std::abort();
  QVPlatform::Application::setContainerDirectory(pattern);
  QVDebug::setDebugLevel(6);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  QVFuzz::updateConfiguration({reinterpret_cast<const char*>(bytes), size});
  return 0;
}
