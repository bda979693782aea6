#include "support/text.h"

#include <algorithm>
#include <charconv>
#include <system_error>

namespace ZEL {
namespace {

constexpr std::string_view kWhiteSpace = " \t\n\v\f\r";

std::string trimAny(std::string_view text, std::string_view characters) {
  const std::size_t first = text.find_first_not_of(characters);
  if (first == std::string_view::npos) return "";
  return std::string(text.substr(first, text.find_last_not_of(characters) - first + 1));
}

}  // namespace

std::vector<std::string> Text::split(std::string_view text, std::string_view delimiter, int limit) {
  std::vector<std::string> pieces;
  std::size_t start = 0;
  while (!delimiter.empty() && (limit <= 0 || pieces.size() + 1 < static_cast<std::size_t>(limit))) {
    const std::size_t end = text.find(delimiter, start);
    if (end == std::string_view::npos) break;
    pieces.emplace_back(text.substr(start, end - start));
    start = end + delimiter.size();
  }
  pieces.emplace_back(text.substr(start));
  return pieces;
}

std::vector<std::string> Text::words(std::string_view text) {
  std::vector<std::string> words;
  std::size_t end = 0;
  for (;;) {
    const std::size_t start = text.find_first_not_of(kWhiteSpace, end);
    if (start == std::string_view::npos) return words;
    end = std::min(text.find_first_of(kWhiteSpace, start), text.size());
    words.emplace_back(text.substr(start, end - start));
  }
}

std::string Text::trim(std::string_view text) {
  return trimAny(text, kWhiteSpace);
}

std::string Text::trim(std::string_view text, unsigned char const& c) {
  const char character = static_cast<char>(c);
  return trimAny(text, std::string_view(&character, 1));
}

bool Text::parse(int& value, std::string_view text) {
  int parsed = 0;
  const char* const end = text.data() + text.size();
  const std::from_chars_result result = std::from_chars(text.data(), end, parsed);
  if (result.ec != std::errc() || result.ptr != end) return false;
  value = parsed;
  return true;
}

std::string Text::format(int value) {
  return std::to_string(value);
}

std::string Text::replace(std::string_view text, std::string_view from, std::string_view to) {
  if (from.empty()) return std::string(text);
  std::string result;
  std::size_t start = 0;
  for (std::size_t found = text.find(from); found != std::string_view::npos; found = text.find(from, start)) {
    result.append(text, start, found - start).append(to);
    start = found + from.size();
  }
  return result.append(text, start);
}

std::string Text::joined(std::initializer_list<std::string_view> pieces) {
  std::size_t size = 0;
  for (const std::string_view piece : pieces) size += piece.size();
  std::string text;
  text.reserve(size);
  for (const std::string_view piece : pieces) text += piece;
  return text;
}

bool Text::beginsWith(std::string_view text, std::string_view beginning) {
  return text.compare(0, beginning.size(), beginning) == 0;
}

}  // namespace ZEL
