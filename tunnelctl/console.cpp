#include "tunnelctl/console.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <vector>

#include "support/text.h"

namespace {

constexpr std::array<const char*, 6> kCodes{"", "31", "32", "33", "90", "1"};
constexpr const char* kCut = "..";
constexpr std::size_t kCutColumns = 2;
constexpr std::size_t kTabColumns = 4;
constexpr std::string_view kBlank = " ";

bool isColoured() {
  const char* const noColour = getenv("NO_COLOR");
  return (noColour == nullptr || *noColour == '\0') && isatty(STDOUT_FILENO) == 1;
}

/// How many bytes the character at a place has, or 0 when there is none of UTF-8 (RFC 3629).
std::size_t characterBytes(std::string_view text, std::size_t place) {
  const auto first = static_cast<unsigned char>(text[place]);
  const std::size_t bytes = first < 0x80   ? 1
                            : first < 0xC2 ? 0
                            : first < 0xE0 ? 2
                            : first < 0xF0 ? 3
                            : first < 0xF5 ? 4
                                           : 0;
  if (bytes == 0 || place + bytes > text.size()) return 0;
  for (std::size_t i = 1; i < bytes; ++i) {
    if ((static_cast<unsigned char>(text[place + i]) & 0xC0U) != 0x80U) return 0;
  }
  return bytes;
}

bool isControl(unsigned char c) {
  return c < 0x20 || c == 0x7F;
}

/// What each column of a terminal shows; parts of the text, which must outlive them.
std::vector<std::string_view> columnsOf(std::string_view text) {
  std::vector<std::string_view> columns;
  for (std::size_t place = 0; place < text.size();) {
    const std::size_t bytes = characterBytes(text, place);
    const bool shown = bytes > 1 || (bytes == 1 && !isControl(static_cast<unsigned char>(text[place])));
    if (text[place] == '\t') {
      for (std::size_t i = 0; i < kTabColumns; ++i) columns.push_back(kBlank);
    } else {
      columns.push_back(shown ? text.substr(place, bytes) : "?");
    }
    place += bytes == 0 ? 1 : bytes;
  }
  return columns;
}

std::string joined(const std::vector<std::string_view>& columns, std::size_t begin, std::size_t end) {
  std::string text;
  for (std::size_t i = begin; i < end; ++i) text += columns[i];
  return text;
}

}  // namespace

std::string coloured(Colour colour, std::string_view text) {
  if (colour == Colour::kNone || !isColoured()) return std::string(text);
  return ZEL::Text::joined({"\033[", kCodes[static_cast<std::size_t>(colour)], "m", text, "\033[0m"});
}

std::string fitted(std::string_view text, std::size_t columns) {
  const std::vector<std::string_view> all = columnsOf(text);
  if (all.size() <= columns) return joined(all, 0, all.size());
  if (columns <= kCutColumns) return joined(all, 0, columns);
  const std::size_t kept = columns - kCutColumns;
  return joined(all, 0, kept - kept / 2) + kCut + joined(all, all.size() - kept / 2, all.size());
}

std::string column(std::string_view text, std::size_t columns) {
  const std::string cut = fitted(text, columns);
  return cut + std::string(columns - columnsOf(cut).size(), ' ');
}

std::string paragraph(std::string_view text, std::size_t indentation) {
  std::string lines;
  std::size_t used = 0;
  for (std::size_t begin = 0; begin <= text.size();) {
    const std::size_t end = std::min(text.find(' ', begin), text.size());
    const std::string word = fitted(text.substr(begin, end - begin), kMostColumns - indentation);
    const std::size_t columns = columnsOf(word).size();
    if (begin > 0 && used + 1 + columns > kMostColumns) {
      lines += "\n" + std::string(indentation, ' ');
      used = indentation;
    } else if (begin > 0) {
      lines += " ";
      ++used;
    }
    lines += word;
    used += columns;
    begin = end + 1;
  }
  return lines + "\n";
}
