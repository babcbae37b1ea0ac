#include "AnswerFuzzer.h"

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  QVFuzz::readAnswers({reinterpret_cast<const char*>(bytes), size});
  return 0;
}
