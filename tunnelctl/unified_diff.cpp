#include "tunnelctl/unified_diff.h"

#include <algorithm>
#include <cstddef>
#include <utility>

#include "support/text.h"

namespace {

using Lines = std::vector<std::string>;
using Kind = DiffLine::Kind;

constexpr std::size_t kAround = 3;
constexpr std::ptrdiff_t kMostDifferences = 1000;

/// One step of the way from one text to the other; the places are those before the step.
struct Step {
  Kind kind;
  std::size_t before;
  std::size_t after;
};

/// The furthest place before on each diagonal with so many differences, from the lowest diagonal on. A diagonal is the
/// place before less the place after; with n differences there are those from -n to n.
using Reach = std::vector<std::ptrdiff_t>;

/// The way with the fewest differences (E. W. Myers, "An O(ND) Difference Algorithm and Its Variations", 1986).
class ShortestWay {
 public:
  ShortestWay(const Lines& before, const Lines& after) : before_(before), after_(after) {}

  /// Texts with more differences than kMostDifferences are taken for altogether different.
  std::vector<Step> steps() {
    for (std::ptrdiff_t differences = 0; differences <= kMostDifferences; ++differences) {
      if (reachesTheEnd(differences)) return stepsBack();
    }
    return everything();
  }

 private:
  static std::ptrdiff_t size(const Lines& lines) { return static_cast<std::ptrdiff_t>(lines.size()); }

  bool same(std::ptrdiff_t x, std::ptrdiff_t y) const {
    return x < size(before_) && y < size(after_) &&
           before_[static_cast<std::size_t>(x)] == after_[static_cast<std::size_t>(y)];
  }

  /// What can be reached on a diagonal with so many differences.
  std::ptrdiff_t reached(std::ptrdiff_t differences, std::ptrdiff_t diagonal) const {
    return reaches_[static_cast<std::size_t>(differences)][static_cast<std::size_t>(diagonal + differences)];
  }

  /// Whether the last of the differences on the way to a diagonal is a line that only the text after has.
  bool endsInInsertion(std::ptrdiff_t differences, std::ptrdiff_t diagonal) const {
    if (diagonal == -differences) return true;
    return diagonal < differences - 1 &&
           reached(differences - 1, diagonal - 1) < reached(differences - 1, diagonal + 1);
  }

  std::ptrdiff_t startOn(std::ptrdiff_t differences, std::ptrdiff_t diagonal) const {
    if (differences == 0) return 0;
    return endsInInsertion(differences, diagonal) ? reached(differences - 1, diagonal + 1)
                                                  : reached(differences - 1, diagonal - 1) + 1;
  }

  bool reachesTheEnd(std::ptrdiff_t differences) {
    Reach reach(static_cast<std::size_t>(2 * differences + 1));
    for (std::ptrdiff_t diagonal = -differences; diagonal <= differences; diagonal += 2) {
      std::ptrdiff_t x = startOn(differences, diagonal);
      while (same(x, x - diagonal)) ++x;
      reach[static_cast<std::size_t>(diagonal + differences)] = x;
      if (x >= size(before_) && x - diagonal >= size(after_)) {
        reaches_.push_back(std::move(reach));
        return true;
      }
    }
    reaches_.push_back(std::move(reach));
    return false;
  }

  std::vector<Step> stepsBack() const {
    std::vector<Step> steps;
    const auto note = [&steps](Kind kind, std::ptrdiff_t x, std::ptrdiff_t y) {
      steps.push_back({kind, static_cast<std::size_t>(x), static_cast<std::size_t>(y)});
    };
    std::ptrdiff_t x = size(before_);
    std::ptrdiff_t y = size(after_);
    for (std::ptrdiff_t differences = static_cast<std::ptrdiff_t>(reaches_.size()) - 1; differences >= 0;
         --differences) {
      const std::ptrdiff_t diagonal = x - y;
      const std::ptrdiff_t start = startOn(differences, diagonal);
      while (x > start) note(Kind::kBoth, --x, --y);
      if (differences == 0) break;
      if (endsInInsertion(differences, diagonal)) {
        note(Kind::kOnlyAfter, x, --y);
      } else {
        note(Kind::kOnlyBefore, --x, y);
      }
    }
    std::reverse(steps.begin(), steps.end());
    return steps;
  }

  std::vector<Step> everything() const {
    std::vector<Step> steps;
    for (std::size_t x = 0; x < before_.size(); ++x) steps.push_back({Kind::kOnlyBefore, x, 0});
    for (std::size_t y = 0; y < after_.size(); ++y) steps.push_back({Kind::kOnlyAfter, before_.size(), y});
    return steps;
  }

  const Lines& before_;
  const Lines& after_;
  std::vector<Reach> reaches_;  ///< by the number of differences
};

/// "3,7", or "3" for one line; a place without lines is named by the line before it.
std::string range(std::size_t first, std::size_t count) {
  const std::string line = std::to_string(count == 0 ? first : first + 1);
  return count == 1 ? line : line + "," + std::to_string(count);
}

std::size_t countOf(const std::vector<Step>& steps, std::size_t begin, std::size_t end, Kind left) {
  return static_cast<std::size_t>(std::count_if(steps.begin() + static_cast<std::ptrdiff_t>(begin),
                                                steps.begin() + static_cast<std::ptrdiff_t>(end),
                                                [left](const Step& step) { return step.kind != left; }));
}

/// Where the hunk ends whose first difference stands at a place: three lines behind a difference that has no other one
/// within six.
std::size_t endOfHunk(const std::vector<Step>& steps, std::size_t difference) {
  std::size_t last = difference;
  for (std::size_t i = difference; i < steps.size() && i <= last + 2 * kAround; ++i) {
    if (steps[i].kind != Kind::kBoth) last = i;
  }
  return std::min(last + 1 + kAround, steps.size());
}

}  // namespace

std::vector<std::string> linesOf(const std::string& text) {
  std::vector<std::string> lines;
  for (std::size_t begin = 0; begin < text.size();) {
    const std::size_t end = text.find('\n', begin);
    lines.push_back(text.substr(begin, end == std::string::npos ? end : end - begin));
    if (end == std::string::npos) {
      lines.emplace_back("\\ No newline at end of file");
      break;
    }
    begin = end + 1;
  }
  return lines;
}

std::vector<DiffLine> unifiedDiff(const std::vector<std::string>& before, const std::vector<std::string>& after) {
  const std::vector<Step> steps = ShortestWay(before, after).steps();
  std::vector<DiffLine> diff;
  for (std::size_t i = 0; i < steps.size();) {
    if (steps[i].kind == Kind::kBoth) {
      ++i;
      continue;
    }
    const std::size_t begin = i < kAround ? 0 : i - kAround;
    const std::size_t end = endOfHunk(steps, i);
    diff.push_back(
        {Kind::kHunk, steps[begin].before, steps[begin].after,
         ZEL::Text::joined({"@@ -", range(steps[begin].before, countOf(steps, begin, end, Kind::kOnlyAfter)), " +",
                            range(steps[begin].after, countOf(steps, begin, end, Kind::kOnlyBefore)), " @@"})});
    for (i = begin; i < end; ++i) {
      const Step& step = steps[i];
      const std::string& line = step.kind == Kind::kOnlyAfter ? after[step.after] : before[step.before];
      diff.push_back({step.kind, step.before, step.after, line});
    }
  }
  return diff;
}
