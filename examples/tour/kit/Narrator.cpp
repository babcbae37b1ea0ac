#include "tour/kit/Narrator.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <sstream>

namespace {

constexpr std::size_t kWidth = 78;

constexpr std::string_view kPlain = "";
constexpr std::string_view kBold = "\x1b[1m";
constexpr std::string_view kDim = "\x1b[2m";
constexpr std::string_view kGreen = "\x1b[32m";
constexpr std::string_view kRed = "\x1b[1;31m";

bool isColourTerminal() {
  const char* terminal = std::getenv("TERM");
  return isatty(STDOUT_FILENO) == 1 && std::getenv("NO_COLOR") == nullptr && terminal != nullptr &&
         std::string_view(terminal) != "dumb";
}

std::string cut(const std::string& text) {
  return text.size() <= kWidth ? text : text.substr(0, kWidth - 3) + "...";
}

}  // namespace

Narrator::Narrator() : usesColours_(isColourTerminal()) {}

void Narrator::title(const std::string& text) {
  line(kBold, text);
  line(kPlain, std::string(kWidth, '='));
}

void Narrator::chapter(const std::string& text) {
  chapter_ = text;
  line(kPlain, "");
  line(kBold, std::to_string(++chapters_) + ". " + text);
}

void Narrator::say(const std::string& text) {
  std::istringstream words(text);
  std::string row = " ";
  for (std::string word; words >> word;) {
    if (row.size() + 1 + word.size() > kWidth) {
      line(kPlain, row);
      row = " ";
    }
    row += " " + word;
  }
  line(kPlain, row);
}

void Narrator::event(const std::string& text) { line(kDim, cut("    " + text)); }

void Narrator::check(bool holds, const std::string& what) {
  ++checks_;
  line(holds ? kGreen : kRed, cut(std::string(holds ? "  [ok] " : "  [DIFFERS] ") + what));
  if (!holds) differences_.push_back(chapter_.empty() ? what : chapter_ + ": " + what);
}

void Narrator::checkSame(const std::vector<std::string>& expected,
                         const std::vector<std::string>& seen, const std::string& what) {
  check(expected == seen, what);
  if (expected == seen) return;
  for (const auto& item : expected) line(kRed, "    expected: " + item);
  for (const auto& item : seen) line(kRed, "    seen:     " + item);
}

void Narrator::conclude() {
  line(kPlain, "");
  if (isContent()) return line(kBold, "All " + std::to_string(checks_) + " checks hold.");
  line(kRed, "What differed from what the tour promised:");
  for (const auto& difference : differences_) line(kRed, "  " + difference);
}

void Narrator::line(std::string_view style, const std::string& text) {
  if (usesColours_ && !style.empty()) {
    std::printf("%s%s\x1b[0m\n", std::string(style).c_str(), text.c_str());
  } else {
    std::printf("%s\n", text.c_str());
  }
  std::fflush(stdout);  // other processes of the tour print too
}
