#include <QVPlatform/Foundation/CallOut.h>

#include <QVPlatform/Foundation/Log.h>

#include <cxxabi.h>

#include <exception>

namespace QVPlatform {

void logStoppedException() {
  try {
    try {
      throw;
    } catch (const abi::__forced_unwind&) {
      throw;
    } catch (const std::exception& error) {
      consoleLog(String("an exception was stopped: ") + String(error.what()));
    } catch (...) {
      consoleLog("an exception of unknown type was stopped");
    }
  } catch (const abi::__forced_unwind&) {
    throw;
  } catch (...) {
    // Memory is so short that not even the line can be made.
  }
}

}  // namespace QVPlatform
