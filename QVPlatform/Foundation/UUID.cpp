#include <QVPlatform/Foundation/UUID.h>

#include <uuid.h>

#include <string_view>

namespace QVPlatform {
namespace {

String textOf(const uuid_t identifier) {
  char text[UUID_STR_LEN];
  uuid_unparse_upper(identifier, text);
  return String(text);
}

bool isParsed(const String& text, uuid_t identifier) {
  const std::string_view view = text.view();
  return view.size() == UUID_STR_LEN - 1 &&
         uuid_parse_range(view.data(), view.data() + view.size(), identifier) == 0;
}

}  // namespace

String UUID::UUIDString() {
  uuid_t identifier;
  uuid_generate_random(identifier);
  return textOf(identifier);
}

String UUID::UUIDStringOfText(const String& text) {
  uuid_t identifier;
  return isParsed(text, identifier) ? textOf(identifier) : nullptr;
}

String UUID::nameBased(const String& namespaceIdentifier, const String& name) {
  uuid_t space;
  if (name.isNull() || !isParsed(namespaceIdentifier, space)) return nullptr;
  uuid_t identifier;
  uuid_generate_sha1(identifier, space, name.view().data(), name.view().size());
  return textOf(identifier);
}

}  // namespace QVPlatform
