// Operations on text.
#pragma once

#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

namespace ZEL {

/// Pure functions on texts of bytes; no locale, any thread.
class Text {
 public:
  /// The pieces between the delimiters, empty ones included, so always one more than there are delimiters. With a limit
  /// above 0 there are at most that many pieces, the last one holding the rest. An empty delimiter splits nothing.
  static std::vector<std::string> split(std::string_view text, std::string_view delimiter, int limit);

  /// The pieces between white space.
  static std::vector<std::string> words(std::string_view text);

  /// Without the white space (blank, \t, \n, \v, \f, \r) at both ends.
  static std::string trim(std::string_view text);

  /// Without the given character at both ends.
  static std::string trim(std::string_view text, unsigned char const& c);

  /// Reads a whole decimal number, with "-" in front or not. False, and the value untouched, when the text is anything
  /// else: empty, with other characters before or behind, or beyond the range of an int.
  static bool parse(int& value, std::string_view text);

  static std::string format(int value);

  /// Every occurrence replaced, from left to right, what was put in not searched again. An empty `from` occurs nowhere.
  static std::string replace(std::string_view text, std::string_view from, std::string_view to);

  /// The pieces in a row.
  static std::string joined(std::initializer_list<std::string_view> pieces);

  static bool beginsWith(std::string_view text, std::string_view beginning);
};

}  // namespace ZEL
