#include <QVPlatform/WebKit/WebView.h>

namespace QVPlatform {

WebView::~WebView() = default;

}  // namespace QVPlatform
