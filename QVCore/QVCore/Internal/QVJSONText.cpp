#include <QVCore/Internal/QVJSONText.h>

#include <QVPlatform/Foundation/Null.h>

#include <cmath>
#include <concepts>
#include <cstddef>
#include <string>
#include <string_view>
#include <type_traits>
#include <variant>

using QVPlatform::Array;
using QVPlatform::Date;
using QVPlatform::Dictionary;
using QVPlatform::String;
using QVPlatform::Value;

namespace {

/// Containers that share what they hold can be walked through in any number of ways.
constexpr std::size_t kMaximumWritten = 1U << 20;

class Writer {
 public:
  std::string text;

  void write(const Value& value) {
    if (depth_ > Value::kMaximumDepth || left_ == 0) {
      text.append("null");
    } else {
      --left_;
      std::visit([this](const auto& held) { writeHeld(held); }, value.storage());
    }
  }

 private:
  template <class Held>
  void writeHeld(const Held& held) {
    if constexpr (std::same_as<Held, bool>) {
      text.append(held ? "true" : "false");
    } else if constexpr (std::same_as<Held, double>) {
      text.append(std::isfinite(held) ? Value(held).description().view() : "null");
    } else if constexpr (std::same_as<Held, Date>) {
      writeHeld(held.secondsSince1970);
    } else {
      text.append(Value(held).description().view());  // an integer
    }
  }
  void writeHeld(std::monostate) { text.append("null"); }
  void writeHeld(const String& string) { writeText(string.view()); }
  void writeHeld(const QVPlatform::Data& data) { writeText(Value(data).description().view()); }
  void writeHeld(const Value::ObjectReference& object) {
    if (object == QVPlatform::Null::null()) {
      text.append("null");
    } else {
      writeText(object->description().view());
    }
  }

  void writeHeld(const Array& array) {
    begin('[');
    for (const Value& element : array.values()) {
      separate();
      write(element);
    }
    end(']');
  }
  void writeHeld(const Dictionary& dictionary) {
    begin('{');
    for (const auto& [key, element] : *dictionary.snapshot()) {
      separate();
      writeText(key.view());
      text.push_back(':');
      write(element);
    }
    end('}');
  }

  void writeText(std::string_view characters) {
    static constexpr char kDigits[] = "0123456789abcdef";
    text.push_back('"');
    for (const char character : characters) {
      const auto code = static_cast<unsigned char>(character);
      if (code < 0x20) {
        text.append("\\u00").append({kDigits[code >> 4], kDigits[code & 15]});
      } else {
        if (character == '"' || character == '\\') text.push_back('\\');
        text.push_back(character);
      }
    }
    text.push_back('"');
  }

  void begin(char bracket) {
    text.push_back(bracket);
    ++depth_;
  }
  void separate() {
    if (text.back() != '[' && text.back() != '{') text.push_back(',');
  }
  void end(char bracket) {
    text.push_back(bracket);
    --depth_;
  }

  std::size_t left_ = kMaximumWritten;
  std::size_t depth_ = 0;
};

}  // namespace

String QVJSONText(const Value& value) {
  Writer writer;
  writer.write(value);
  return String(writer.text);
}
