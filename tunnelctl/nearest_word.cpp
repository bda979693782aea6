#include "tunnelctl/nearest_word.h"

#include <algorithm>
#include <cctype>
#include <string>
#include <utility>

namespace {

std::string inSmallLetters(std::string_view word) {
  std::string text(word);
  for (char& c : text) c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
  return text;
}

/// The fewest letters to change, insert, leave out, or exchange with their neighbours, no letter more than once
/// (optimal string alignment).
std::size_t distance(const std::string& a, const std::string& b) {
  std::vector<std::size_t> beforeLast;
  std::vector<std::size_t> last(b.size() + 1);
  for (std::size_t j = 0; j <= b.size(); ++j) last[j] = j;
  for (std::size_t i = 1; i <= a.size(); ++i) {
    std::vector<std::size_t> row(b.size() + 1, i);
    for (std::size_t j = 1; j <= b.size(); ++j) {
      row[j] = std::min({last[j] + 1, row[j - 1] + 1, last[j - 1] + (a[i - 1] == b[j - 1] ? 0 : 1)});
      const bool exchanged = i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1];
      if (exchanged) row[j] = std::min(row[j], beforeLast[j - 2] + 1);
    }
    beforeLast = std::exchange(last, std::move(row));
  }
  return last[b.size()];
}

}  // namespace

std::string_view nearestWord(std::string_view word, const std::vector<std::string_view>& known) {
  std::string_view nearest;
  std::size_t least = std::max<std::size_t>(1, word.size() / 3) + 1;
  for (const std::string_view candidate : known) {
    const std::size_t wrong = distance(inSmallLetters(word), inSmallLetters(candidate));
    if (wrong >= least) continue;
    least = wrong;
    nearest = candidate;
  }
  return nearest;
}
