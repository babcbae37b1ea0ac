#include "ConfigurationUpdateFuzzer.h"

#include <QVCore/QVDebug.h>
#include <QVPlatform/Application.h>

#include "tests/support/TemporaryDirectory.h"

#include <cstddef>
#include <cstdint>

/// Each update that is stored goes to the disk: give the fuzzer a fast one by $TMPDIR.
extern "C" int LLVMFuzzerInitialize(int*, char***) {
  static const QVTest::TemporaryDirectory container;
  QVPlatform::Application::setContainerDirectory(container.path().string());
  QVDebug::setDebugLevel(6);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  QVFuzz::updateConfiguration({reinterpret_cast<const char*>(bytes), size});
  return 0;
}
