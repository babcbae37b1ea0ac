#include <QVPlatform/Foundation/UUID.h>
#include <uuid.h>

namespace QVPlatform {
namespace {

String textOf(const uuid_t identifier) {
  char text[UUID_STR_LEN];
  uuid_unparse_upper(identifier, text);
  return String(text);
}

}  // namespace

String UUID::UUIDString() {
  uuid_t identifier;
  uuid_generate_random(identifier);
  return textOf(identifier);
}

String UUID::nameBased(const String& namespaceIdentifier, const String& name) {
  uuid_t space;
  if (namespaceIdentifier.isNull() || name.isNull() ||
      uuid_parse(namespaceIdentifier.UTF8String(), space) != 0) {
    return nullptr;
  }
  uuid_t identifier;
  uuid_generate_sha1(identifier, space, name.view().data(), name.view().size());
  return textOf(identifier);
}

}  // namespace QVPlatform
