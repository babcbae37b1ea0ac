#pragma once

#include <QVPlatform/Export.h>
#include <QVPlatform/WebKit/WebView.h>

#include <memory>

namespace QVPlatform {

/// Makes web views. An application that has a web engine of its own (Qt WebEngine, CEF) derives
/// from this and from WebView, and hands its engine in before the core starts; all others get the
/// default engine, WebKitGTK, which lies in a library of its own (libQVWebKit) that is loaded when
/// a web view is wanted for the first time.
class QVPLATFORM_EXPORT WebEngine {
 public:
  virtual ~WebEngine();

  /// A new web view, or null when the engine cannot make one. Called on the main thread. Must not
  /// end the process, whatever fails: there may be no display, for instance.
  virtual std::shared_ptr<WebView> makeWebView(const WebViewConfiguration& configuration) = 0;

  /// The engine in use: the one that was set, else the default engine; null when its library cannot
  /// be loaded, which one line on the console log explains. Called on the main thread, since the
  /// first call may load the library.
  static std::shared_ptr<WebEngine> engine();
  /// Replaces the engine; null brings the default engine back. Callable from any thread.
  static void setEngine(std::shared_ptr<WebEngine> engine);
};

}  // namespace QVPlatform
