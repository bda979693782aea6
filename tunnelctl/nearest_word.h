// What somebody may have meant by a word that is not known.
#pragma once

#include <string_view>
#include <vector>

/// The known word that differs least from the given one, or "" when none is near: a third of its letters, and at least
/// one, may be wrong, missing, too many or exchanged with a neighbour. Capitals count as their small letters. Of
/// several the first; it stands where the known word does. Pure.
std::string_view nearestWord(std::string_view word, const std::vector<std::string_view>& known);
