#include <QVPlatform/Archives/JSONSerialization.h>

#include <QVPlatform/Archives/JSONDocument.h>

namespace QVPlatform {

Value JSONSerialization::JSONObjectWithText(const String& text, String* error) {
  const JSONDocument document(text);
  if (error) *error = document.error();
  return document.value();
}

}  // namespace QVPlatform
