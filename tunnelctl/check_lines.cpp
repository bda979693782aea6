#include "tunnelctl/check_lines.h"

#include <algorithm>

namespace {

constexpr std::string_view kWhiteSpace = " \t\n\v\f\r";

}  // namespace

std::string_view takePiece(std::string_view& text, char end) {
  const std::string_view piece = text.substr(0, text.find(end));
  text.remove_prefix(std::min(piece.size() + 1, text.size()));
  return piece;
}

std::string_view takeLine(std::string_view& text) {
  std::string_view line = takePiece(text, '\n');
  line.remove_prefix(std::min(line.find_first_not_of(kWhiteSpace), line.size()));
  return line.substr(0, line.find_last_not_of(kWhiteSpace) + 1);
}
