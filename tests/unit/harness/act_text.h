// What was done, in words: to compare with, and to show when it is another.
#pragma once

#include <string>
#include <vector>

#include "effects/noting_effects.h"

/// A line for each act, in their order: "run ip tunnel", "mode 644 /path", "signal 15 to child 1". The children are
/// numbered as they were started; what a child does has its number in front: "child 1: run mkdir". What is written to a
/// file is left out.
std::vector<std::string> textsOf(const std::vector<Act>& acts);
