#include "tour/kit/ScriptedEngine.h"

#include <QVPlatform/Dispatch/MainQueue.h>
#include <QVPlatform/Foundation/Error.h>

#include <utility>

namespace {

class ScriptedView final : public QVPlatform::WebView {
 public:
  void evaluateJavaScript(const QVPlatform::String&, Completion completion) override {
    QVPlatform::MainQueue::mainQueue().async([completion = std::move(completion)] {
      completion("Mozilla/5.0 (Linux; a set-top box) Tour/1.0", nullptr);
    });
  }
};

}  // namespace

std::shared_ptr<QVPlatform::WebView> ScriptedEngine::makeWebView(
    const QVPlatform::WebViewConfiguration&) {
  return std::make_shared<ScriptedView>();
}
