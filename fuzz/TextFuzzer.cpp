#include "TextFuzzer.h"

#include <QVCore/QVDebug.h>

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  QVDebug::setDebugLevel(6);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  QVFuzz::readText({reinterpret_cast<const char*>(bytes), size});
  return 0;
}
