#include "inspector/Curl.h"

#include <algorithm>
#include <array>
#include <sstream>
#include <vector>

namespace {

constexpr std::array kEscapes{std::pair{'n', '\n'}, std::pair{'r', '\r'}, std::pair{'t', '\t'}};

/// As one word of the shell.
std::string word(std::string_view text) {
  const bool isPlain = std::none_of(text.begin(), text.end(), [](char letter) {
    return static_cast<unsigned char>(letter) < ' ' || letter == 0x7F || letter == '\'';
  });
  if (isPlain) return "'" + std::string(text) + "'";
  std::string quoted = "$'";
  for (const char letter : text) {
    constexpr char kDigits[] = "0123456789abcdef";
    const auto code = static_cast<unsigned char>(letter);
    if (code < ' ' || code == 0x7F) {
      quoted.append("\\x") += kDigits[code >> 4];
      quoted += kDigits[code & 15];
    } else {
      if (letter == '\'' || letter == '\\') quoted += '\\';
      quoted += letter;
    }
  }
  return quoted + "'";
}

std::string headerOption(const std::string& name, const std::string& value) {
  return " \\\n  --header " + word(value.empty() ? name + ";" : name + ": " + value);
}

bool isMadeByCurl(const std::string& name) {
  return findHeader({{"Host", ""}, {"Content-Length", ""}, {"Transfer-Encoding", ""}}, name) !=
         nullptr;
}

/// Reads the shell's words of a text, and its comments.
class Words {
 public:
  explicit Words(std::string_view text) : rest_(text) {}

  /// The next word; "\n" at the end of a command. Null at the end of the text.
  std::optional<std::string> next() {
    while (rest_.starts_with(' ') || rest_.starts_with("\\\n")) drop(rest_[0] == ' ' ? 1 : 2);
    if (rest_.empty()) return std::nullopt;
    if (rest_[0] == '#') return take(std::min(rest_.find('\n'), rest_.size()));
    if (rest_[0] == '\n') return take(1);
    std::string word;
    while (!rest_.empty() && rest_[0] != ' ' && rest_[0] != '\n') readPart(word);
    return word;
  }

  bool isBroken() const { return isBroken_; }

 private:
  void drop(std::size_t size) { rest_.remove_prefix(std::min(size, rest_.size())); }

  std::string take(std::size_t size) {
    std::string text(rest_.substr(0, size));
    drop(size);
    return text;
  }

  void readPart(std::string& word) {
    if (rest_[0] == '\'') return readQuoted(word, '\'', false);
    if (rest_[0] == '"') return readQuoted(word, '"', true);
    if (rest_.starts_with("$'")) {
      drop(1);
      return readQuoted(word, '\'', true);
    }
    if (rest_[0] == '\\') drop(1);
    word += take(1);
  }

  void readQuoted(std::string& word, char quote, bool hasEscapes) {
    drop(1);
    while (!rest_.empty() && rest_[0] != quote) {
      if (hasEscapes && rest_[0] == '\\') {
        readEscape(word, quote);
      } else {
        word += take(1);
      }
    }
    isBroken_ = isBroken_ || rest_.empty();
    drop(1);
  }

  void readEscape(std::string& word, char quote) {
    drop(1);
    if (quote == '"' || rest_.empty()) {
      word += take(1);
      return;
    }
    if (rest_[0] == 'x') {
      const std::string digits(rest_.substr(1, 2));
      word += static_cast<char>(std::strtoul(digits.c_str(), nullptr, 16));
      return drop(3);
    }
    const auto found = std::find_if(kEscapes.begin(), kEscapes.end(),
                                    [&](const auto& each) { return each.first == rest_[0]; });
    word += found != kEscapes.end() ? found->second : rest_[0];
    drop(1);
  }

  std::string_view rest_;
  bool isBroken_ = false;
};

/// Of a comment that curlOf() writes: "# 2026-11-21T20:40:00.123Z hit: answered 200".
void readComment(const std::string& comment, Hit& hit) {
  std::istringstream words(comment);
  std::string mark, time, kind, outcome;
  words >> mark >> time >> kind >> outcome >> hit.status;
  hit.status = std::max(hit.status, 0);
  hit.time = timeOfISOText(time).value_or(now());
  hit.outcome = outcomeNamed(outcome).value_or(Outcome::kWaiting);
  if (!kind.empty()) kind.pop_back();
  hit.kind = kindNamed(kind).value_or(Kind::kOther);
}

void readHeader(const std::string& header, Hit& hit) {
  const std::size_t sign = header.find_first_of(":;");
  if (sign == std::string::npos) return;
  const std::size_t begin = header.find_first_not_of(' ', sign + 1);
  const bool isForCurl =
      header[sign] == ':' && begin == std::string::npos;  // to leave out one of its own
  if (isForCurl) return;
  hit.headers.emplace_back(header.substr(0, sign),
                           begin == std::string::npos ? "" : header.substr(begin));
}

/// The hit has what its comment says.
Hit hitOf(const std::vector<std::string>& words, Hit hit, bool isKindKnown) {
  for (std::size_t i = 0; i < words.size(); ++i) {
    const std::string& option = words[i];
    const bool hasValue = i + 1 < words.size();
    if (hasValue && (option == "-X" || option == "--request")) {
      hit.method = words[++i];
    } else if (hasValue && (option == "-H" || option == "--header")) {
      readHeader(words[++i], hit);
    } else if (hasValue && (option == "-d" || option.starts_with("--data"))) {
      const bool isPiped = words[++i] == "@-" && words.size() > 1 && words[0] == "echo";
      hit.body = isPiped ? bytesOfBase64(words[1]).value_or("") : words[i];
      if (hit.method.empty()) hit.method = "POST";
    } else if (option == "-I" || option == "--head") {
      hit.method = "HEAD";
    } else if (option.find("://") != std::string::npos) {
      hit.url = option;
    }
  }
  if (hit.method.empty()) hit.method = "GET";
  hit.bodySize = hit.body.size();
  if (!isKindKnown) hit.kind = kindOf(hit);
  return hit;
}

}  // namespace

std::string curlOf(const Hit& hit) {
  std::string command = "# " + isoText(hit.time) + " " + nameOf(hit.kind) + ": " +
                        nameOf(hit.outcome) + " " + std::to_string(hit.status) + "\n";
  const bool hasNul = hit.body.find('\0') != std::string::npos;
  if (hasNul) command += "echo " + base64(hit.body) + " | base64 --decode | ";
  command += hit.method == "HEAD" ? "curl --head" : "curl --request " + word(hit.method);
  command += " " + word(hit.url);
  for (const auto& [name, value] : hit.headers) {
    if (isMadeByCurl(name)) continue;
    command += headerOption(name, value);
  }
  if (hit.body.empty()) return command;
  // Which curl would else say of any body.
  if (findHeader(hit.headers, "Content-Type") == nullptr) {
    command += " \\\n  --header 'Content-Type:'";
  }
  return command + " \\\n  " + (hasNul ? "--data-binary @-" : "--data-raw " + word(hit.body));
}

bool readCurl(const std::string& text, const std::function<void(Hit)>& onHit) {
  Words words(text);
  Hit told;
  bool isTold = false;
  std::vector<std::string> command;
  std::vector<Hit> hits;
  const auto finish = [&] {
    if (std::find(command.begin(), command.end(), "curl") != command.end()) {
      Hit hit = hitOf(command, std::exchange(told, Hit()), isTold);
      if (!std::exchange(isTold, false)) hit.time = now();
      if (!hit.url.empty()) hits.push_back(std::move(hit));
    }
    command.clear();
  };
  while (const auto word = words.next()) {
    if (word->starts_with('#') && command.empty()) {
      readComment(*word, told);
      isTold = true;
    } else if (*word == "\n") {
      finish();
    } else {
      command.push_back(*word);
    }
  }
  finish();
  if (words.isBroken()) return false;
  for (auto& hit : hits) onHit(std::move(hit));
  return true;
}
