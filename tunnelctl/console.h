// Plain text for people: at most 100 columns, in colour on a terminal.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

constexpr std::size_t kMostColumns = 100;

enum class Colour { kNone, kRed, kGreen, kYellow, kGrey, kBold };

/// The text in a colour where standard output is a terminal and NO_COLOR (no-color.org) is not set; else as it is.
std::string coloured(Colour colour, std::string_view text);

/// The text with a tab shown as four blanks, what else is no printable character of UTF-8 as "?", and cut in its middle
/// ("abc..xyz") when it takes more than that many columns. A character counts as one column.
std::string fitted(std::string_view text, std::size_t columns);

/// The same, filled up with blanks.
std::string column(std::string_view text, std::size_t columns);

/// The text as lines of at most kMostColumns, broken at blanks; the lines behind the first begin with so many blanks.
/// Words that are longer are cut as above. Ends in a line feed.
std::string paragraph(std::string_view text, std::size_t indentation);
