#include <QVPlatform/Foundation/JSONDocument.h>
#include <QVPlatform/Foundation/JSONSerialization.h>

namespace QVPlatform {

Value JSONSerialization::JSONObjectWithText(const String& text, String* error) {
  const JSONDocument document(text);
  if (error) *error = document.error();
  return document.value();
}

}  // namespace QVPlatform
