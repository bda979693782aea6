// Two texts compared line by line.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

struct DiffLine {
  enum class Kind { kHunk, kBoth, kOnlyBefore, kOnlyAfter };
  Kind kind;
  std::size_t before;  ///< the line's place in the text before, or what stands there already
  std::size_t after;   ///< the same in the text after
  std::string text;    ///< the line; of a hunk "@@ -1,2 +1,3 @@"
};

/// The lines of a text. One that ends without a line feed has the marker "\ No newline at end of file" behind it.
std::vector<std::string> linesOf(const std::string& text);

/// The hunks of the unified format of diff(1), each with three lines around what differs; nothing when nothing does.
/// Texts that differ in more than 1000 lines are shown as altogether different, which bounds time and memory. Pure.
std::vector<DiffLine> unifiedDiff(const std::vector<std::string>& before, const std::vector<std::string>& after);
