#include <QVPlatform/Networking/Internal/UsualFields.h>

#include <QVPlatform/Application.h>
#include <QVPlatform/Foundation/Lasting.h>
#include <QVPlatform/Foundation/Property.h>
#include <QVPlatform/Networking/HTTPHeaderFields.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <string>
#include <string_view>

namespace QVPlatform::UsualFields {
namespace {

struct Settings {
  Property<String> userAgent;
  Property<String> acceptLanguage;
  std::atomic<unsigned> version{0};
};

Settings& settings() { return Lasting<Settings>::object(); }

void change(Property<String>& setting, const String& text) {
  if (!text.isNull() && !isHTTPFieldValue(text)) return;
  setting.set(text);
  ++settings().version;
}

/// What may not stand in a product's name or version becomes a hyphen.
std::string token(const String& text) {
  std::string name(text.view());
  std::ranges::replace_if(
      name, [](char c) { return !isHTTPToken(String(std::string_view(&c, 1))); }, '-');
  return name;
}

bool isWord(std::string_view text, std::size_t shortest, std::size_t longest) {
  const auto isLetterOrDigit = [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
  };
  return text.size() >= shortest && text.size() <= longest &&
         std::ranges::all_of(text, isLetterOrDigit);
}

/// The locale of messages, as setlocale() would choose it: "fr_CA.UTF-8@euro".
std::string_view localeOfEnvironment() {
  for (const char* name : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
    const char* value = std::getenv(name);
    if (value && *value) return value;
  }
  return {};
}

/// "org.example.player/2.1 QVCore/4.7.4": the application, and what sends for it.
String nameOfProgram() {
  std::string text = token(Application::identifier());
  const std::string version = token(Application::version());
  if (!text.empty() && !version.empty()) text += '/' + version;
  return String(text + (text.empty() ? "" : " ") + QVPLATFORM_PRODUCT);
}

/// "fr-CA,fr;q=0.9" for "fr_CA.UTF-8"; "en" where no language is named, as by "C".
String languageOfEnvironment() {
  std::string_view locale = localeOfEnvironment();
  locale = locale.substr(0, locale.find_first_of(".@"));
  const std::size_t bar = std::min(locale.find('_'), locale.size());
  const std::string language(locale.substr(0, bar));
  const std::string region(locale.substr(std::min(bar + 1, locale.size())));
  if (!isWord(language, 2, 3)) return "en";
  if (!isWord(region, 2, 3)) return String(language);
  return String(language + '-' + region + ',' + language + ";q=0.9");
}

}  // namespace

String userAgent() {
  const String chosen = settings().userAgent.get();
  return chosen.isNull() ? nameOfProgram() : chosen;
}

void setUserAgent(const String& text) { change(settings().userAgent, text); }

String acceptLanguage() {
  const String chosen = settings().acceptLanguage.get();
  return chosen.isNull() ? languageOfEnvironment() : chosen;
}

void setAcceptLanguage(const String& text) { change(settings().acceptLanguage, text); }

unsigned version() noexcept { return settings().version; }

}  // namespace QVPlatform::UsualFields
