#pragma once

#include "Test.h"

namespace QVTest {

/// A web engine that answers when, and what, the test says. To be looked at while nobody asks it.
class ScriptedWebEngine : public QVPlatform::WebEngine {
 public:
  struct Question {
    std::shared_ptr<QVPlatform::ProcessPool> pool;
    std::string script;
    bool isOnMainThread;
    QVPlatform::WebView::Completion completion;
  };

  std::shared_ptr<QVPlatform::WebView> makeWebView(
      const QVPlatform::WebViewConfiguration& configuration) override {
    return canMakeWebViews ? std::make_shared<View>(questions, configuration.processPool) : nullptr;
  }
  /// Answers the last question, as an engine does: later, on the main thread.
  void answer(const QVPlatform::Value& result) const {
    questions->back().completion(result, nullptr);
  }

  bool canMakeWebViews = true;
  const std::shared_ptr<std::vector<Question>> questions =
      std::make_shared<std::vector<Question>>();

 private:
  class View : public QVPlatform::WebView {
   public:
    View(std::shared_ptr<std::vector<Question>> questions,
         std::shared_ptr<QVPlatform::ProcessPool> pool)
        : questions_(std::move(questions)), pool_(std::move(pool)) {}

    void evaluateJavaScript(const QVPlatform::String& script, Completion completion) override {
      questions_->push_back({pool_, std::string(script.view()),
                             QVPlatform::MainQueue::isMainThread(), std::move(completion)});
    }

   private:
    const std::shared_ptr<std::vector<Question>> questions_;
    const std::shared_ptr<QVPlatform::ProcessPool> pool_;
  };
};

}  // namespace QVTest
