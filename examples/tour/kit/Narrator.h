#pragma once

#include <string>
#include <string_view>
#include <vector>

/// Tells the tour in a terminal of 80 columns, and keeps the account of what differed from what the
/// tour promised. In colours if standard output is a terminal. Used by the main thread.
class Narrator {
 public:
  Narrator();

  void title(const std::string& text);
  /// The heading of the next chapter.
  void chapter(const std::string& text);
  /// A paragraph.
  void say(const std::string& text);
  /// One thing that happens. Cut to the width of the terminal.
  void event(const std::string& text);

  /// Says that something holds, or that it does not, which is a difference.
  void check(bool holds, const std::string& what);
  /// The same for two lists; if they differ, shows both.
  void checkSame(const std::vector<std::string>& expected, const std::vector<std::string>& seen,
                 const std::string& what);

  /// Whether everything held so far.
  bool isContent() const { return differences_.empty(); }
  /// Says how many checks held or, if some did not, which.
  void conclude();

 private:
  void line(std::string_view style, const std::string& text);

  const bool usesColours_;
  int chapters_ = 0;
  std::string chapter_;
  int checks_ = 0;
  std::vector<std::string> differences_;  // each with its chapter
};
