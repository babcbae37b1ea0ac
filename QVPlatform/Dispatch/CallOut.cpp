#include <QVPlatform/Dispatch/CallOut.h>

#include <QVPlatform/Foundation/Log.h>

#include <exception>

namespace QVPlatform {

void logStoppedException() noexcept {
  try {
    try {
      throw;
    } catch (const std::exception& error) {
      consoleLog(String("an exception was stopped: ") + String(error.what()));
    } catch (...) {
      consoleLog("an exception of unknown type was stopped");
    }
  } catch (...) {
    // Memory is so short that not even the line can be made.
  }
}

}  // namespace QVPlatform
