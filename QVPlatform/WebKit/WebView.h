#pragma once

#include <QVPlatform/Export.h>
#include <QVPlatform/Foundation/Object.h>
#include <QVPlatform/Foundation/String.h>
#include <QVPlatform/Foundation/Value.h>
#include <QVPlatform/WebKit/ProcessPool.h>

#include <functional>
#include <memory>

namespace QVPlatform {

class Error;

/// How a web view is to be made.
struct WebViewConfiguration {
  /// The pool that the view runs in; null for the engine's default.
  std::shared_ptr<ProcessPool> processPool;
};

/// A web page that nobody sees: hidden, of no size, and empty. It evaluates scripts.
///
/// Threads: made and used on the main thread; the last reference may be dropped on any thread.
class QVPLATFORM_EXPORT WebView : public Object {
 public:
  /// `result` is nil when the script gave nothing or failed; `error` then says why, or is null.
  using Completion = std::function<void(const Value& result, const std::shared_ptr<Error>& error)>;

  ~WebView() override;

  /// Starts to evaluate the script in the page and returns. The completion is called later, once,
  /// on the main thread, whether or not the view still lives. Text, numbers and booleans come back
  /// as such.
  virtual void evaluateJavaScript(const String& script, Completion completion) = 0;
};

}  // namespace QVPlatform
