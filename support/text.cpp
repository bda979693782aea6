#include "support/text.h"

#include <charconv>
#include <system_error>

namespace ZEL {
namespace {

std::string trimAny(std::string const& text, std::string const& characters) {
  const std::size_t first = text.find_first_not_of(characters);
  if (first == std::string::npos) return "";
  return text.substr(first, text.find_last_not_of(characters) - first + 1);
}

}  // namespace

std::vector<std::string> Text::split(std::string const& text, std::string const& delimiter, int limit) {
  std::vector<std::string> pieces;
  std::size_t start = 0;
  while (!delimiter.empty() && (limit <= 0 || pieces.size() + 1 < static_cast<std::size_t>(limit))) {
    const std::size_t end = text.find(delimiter, start);
    if (end == std::string::npos) break;
    pieces.push_back(text.substr(start, end - start));
    start = end + delimiter.size();
  }
  pieces.push_back(text.substr(start));
  return pieces;
}

std::string Text::trim(std::string const& text) {
  return trimAny(text, " \t\n\v\f\r");
}

std::string Text::trim(std::string const& text, unsigned char const& c) {
  return trimAny(text, std::string(1, static_cast<char>(c)));
}

bool Text::parse(int& value, std::string const& text) {
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

std::string Text::replace(std::string const& text, std::string const& from, std::string const& to) {
  if (from.empty()) return text;
  std::string result;
  std::size_t start = 0;
  for (std::size_t found = text.find(from); found != std::string::npos; found = text.find(from, start)) {
    result.append(text, start, found - start).append(to);
    start = found + from.size();
  }
  return result.append(text, start, std::string::npos);
}

}  // namespace ZEL
