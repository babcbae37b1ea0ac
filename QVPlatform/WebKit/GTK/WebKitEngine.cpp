#include <QVPlatform/Dispatch/MainQueue.h>
#include <QVPlatform/Dispatch/SerialQueue.h>
#include <QVPlatform/Foundation/Error.h>
#include <QVPlatform/Foundation/Log.h>
#include <QVPlatform/WebKit/WebEngine.h>

#include <dlfcn.h>

#include <charconv>
#include <filesystem>
#include <string>
#include <utility>

#include "Answer.h"
#include "Program.h"

// WebKit runs in a program of its own, not in the application: it ends its process when it cannot
// start what it needs, its toolkit does so when the display goes away, and both want the process's
// GLib main context, its locale and some hundred megabytes. Here the worst of it is a nil result.

namespace QVPlatform::WebKit {
namespace {

std::string pathOfProgram() {
  Dl_info own{};
  dladdr(reinterpret_cast<const void*>(&pathOfProgram), &own);
  return std::filesystem::path(own.dli_fname).replace_filename(QVWEBKIT_PROGRAM).string();
}

struct Outcome {
  Value result;
  std::shared_ptr<Error> error;
};

Outcome failed(const String& reason) {
  consoleLog(String("no answer from the web engine: ") + reason);
  return {nullptr, std::make_shared<Error>("QVWebKitErrorDomain", 1, reason)};
}

Value numberOf(std::string_view text) {
  double number = 0;
  std::from_chars(text.data(), text.data() + text.size(), number);
  return number;
}

Outcome outcomeOf(const ProgramResult& program) {
  if (!program.failure.empty()) return failed("its program " + program.failure);
  if (program.output.empty()) return failed("its program said nothing");
  const std::string_view text = std::string_view(program.output).substr(1);
  switch (program.output.front()) {
    case kBoolean:
      return {text == "1", nullptr};
    case kNumber:
      return {numberOf(text), nullptr};
    case kText:
      return {String(text), nullptr};
    case kError:
      return failed(text);
    default:
      return {};
  }
}

class ProgramWebView : public WebView {
 public:
  String className() const override { return "WebView"; }

  void evaluateJavaScript(const String& script, Completion completion) override {
    // The queue's thread ends with its only block.
    SerialQueue("QVWebKit").async([script, completion = std::move(completion)]() mutable {
      auto answer = [completion = std::move(completion),
                     outcome = outcomeOf(runProgram(pathOfProgram(), script.view()))] {
        completion(outcome.result, outcome.error);
      };
      MainQueue::mainQueue().async(std::move(answer));
    });
  }
};

class ProgramWebEngine : public WebEngine {
 public:
  std::shared_ptr<WebView> makeWebView(const WebViewConfiguration&) override {
    return std::make_shared<ProgramWebView>();
  }
};

}  // namespace
}  // namespace QVPlatform::WebKit

/// What QVPlatform looks up in this library: a new engine, the caller's.
extern "C" QVPLATFORM_EXPORT QVPlatform::WebEngine* QVWebKitMakeEngine();

QVPlatform::WebEngine* QVWebKitMakeEngine() { return new QVPlatform::WebKit::ProgramWebEngine; }
