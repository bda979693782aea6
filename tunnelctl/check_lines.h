// Texts piece by piece.
#pragma once

#include <string_view>

/// Cuts off the text what stands before the first of these characters, and the character.
std::string_view takePiece(std::string_view& text, char end);

/// The same for a line, which is returned without the white space at its ends.
std::string_view takeLine(std::string_view& text);
