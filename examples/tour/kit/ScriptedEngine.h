#pragma once

#include <QVPlatform/WebKit/WebEngine.h>

#include <memory>

/// Stands in for a web engine where none is installed, or none can run. An application with an
/// engine of its own derives from the same two classes.
class ScriptedEngine final : public QVPlatform::WebEngine {
 public:
  std::shared_ptr<QVPlatform::WebView> makeWebView(
      const QVPlatform::WebViewConfiguration& configuration) override;
};
