#include <QVPlatform/Archives/Internal/XMLPropertyListReader.h>

#include <QVPlatform/Archives/Internal/XMLPropertyListText.h>
#include <QVPlatform/Archives/PropertyList.h>

#include <expat.h>

#include <algorithm>
#include <cstddef>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace QVPlatform {
namespace {

constexpr std::string_view kBlanks = " \t\r\n";

/// Follows the elements of the text as expat reports them.
class Builder {
 public:
  explicit Builder(XML_Parser parser) : parser_(parser) {
    XML_SetUserData(parser, this);
    XML_SetElementHandler(parser, &started, &ended);
    XML_SetCharacterDataHandler(parser, &foundText);
    XML_SetStartDoctypeDeclHandler(parser, &foundDoctype);
    XML_SetSkippedEntityHandler(parser, &skippedEntity);
  }

  Value takeRoot() { return std::move(root_); }

 private:
  /// A container that has been opened and not yet closed.
  struct Container {
    bool isDictionary = false;
    std::vector<Value> values;
    std::vector<Dictionary::Entry> entries;
    String key;  // waits for its value
  };

  void start(std::string_view element) {
    if (isInText_) return stop();  // only text is in text
    if (element == "plist") {
      if (std::exchange(isInDocument_, true)) stop();
    } else if (!isInDocument_) {
      stop();
    } else if (element == "dict" || element == "array") {
      if (containers_.size() == PropertyList::kMaximumDepth) return stop();
      containers_.push_back({element == "dict", {}, {}, nullptr});
    } else {
      isInText_ = true;
      text_.clear();
    }
  }

  void end(std::string_view element) {
    // Stopped at the start of an empty element, expat reports its end all the same.
    if (isStopped_ || element == "plist") return;
    if (isInText_) {
      isInText_ = false;
      if (element == "key") return addKey();
      return add(valueOfXMLElement(element, text_));
    }
    Container container = std::move(containers_.back());
    containers_.pop_back();
    if (!container.key.isNull()) return stop();
    if (container.isDictionary) return add(Dictionary(std::move(container.entries)));
    add(Array(std::move(container.values)));
  }

  void addKey() {
    if (containers_.empty() || !containers_.back().isDictionary) return stop();
    String key(text_);
    if (key.isNull() || !containers_.back().key.isNull()) return stop();
    containers_.back().key = std::move(key);
  }

  void add(Value value) {
    if (value.isNil() || ++count_ > PropertyList::kMaximumCount) return stop();
    if (containers_.empty()) {
      if (!root_.isNil()) return stop();
      root_ = std::move(value);
    } else if (Container& container = containers_.back(); !container.isDictionary) {
      container.values.push_back(std::move(value));
    } else if (container.key.isNull()) {
      stop();
    } else {
      container.entries.emplace_back(std::exchange(container.key, nullptr), std::move(value));
    }
  }

  void addText(std::string_view text) {
    if (isInText_) {
      text_.append(text);
    } else if (text.find_first_not_of(kBlanks) != std::string_view::npos) {
      stop();
    }
  }

  void stop() {
    isStopped_ = true;
    XML_StopParser(parser_, XML_FALSE);
  }

  static Builder& of(void* builder) { return *static_cast<Builder*>(builder); }
  static void started(void* builder, const XML_Char* element, const XML_Char**) {
    of(builder).start(element);
  }
  static void ended(void* builder, const XML_Char* element) { of(builder).end(element); }
  static void foundText(void* builder, const XML_Char* text, int length) {
    of(builder).addText({text, static_cast<std::size_t>(length)});
  }
  static void foundDoctype(void* builder, const XML_Char*, const XML_Char*, const XML_Char*,
                           int hasDeclarations) {
    if (hasDeclarations) of(builder).stop();
  }
  static void skippedEntity(void* builder, const XML_Char*, int) { of(builder).stop(); }

  XML_Parser parser_;
  bool isStopped_ = false;
  bool isInDocument_ = false;
  bool isInText_ = false;
  std::string text_;
  std::vector<Container> containers_;
  Value root_;
  std::size_t count_ = 0;
};

}  // namespace

bool canBeXMLPropertyList(std::string_view beginning, std::size_t size) {
  static constexpr std::string_view kMark = "\xEF\xBB\xBF";
  if (beginning.starts_with(kMark)) beginning.remove_prefix(kMark.size());
  beginning.remove_prefix(std::min(beginning.find_first_not_of(kBlanks), beginning.size()));
  const bool isMarkup = beginning.starts_with("<?xml") || beginning.starts_with("<!") ||
                        beginning.starts_with("<plist");
  return isMarkup && size <= PropertyList::kMaximumCopySize;
}

Value valueWithXMLPropertyList(std::string_view text) {
  if (text.empty() || text.size() > PropertyList::kMaximumCopySize) return nullptr;
  const std::unique_ptr<XML_ParserStruct, decltype(&XML_ParserFree)> parser(
      XML_ParserCreate(nullptr), &XML_ParserFree);
  if (!parser) return nullptr;
  Builder builder(parser.get());
  const auto status = XML_Parse(parser.get(), text.data(), static_cast<int>(text.size()), XML_TRUE);
  return status == XML_STATUS_OK ? builder.takeRoot() : Value();
}

}  // namespace QVPlatform
