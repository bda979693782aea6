// tunnelctl check: what is wrong with a configuration.
#pragma once

#include <string>
#include <vector>

/// Returns 0 when nothing is, else 1. Throws a Complaint where it cannot tell.
int performCheck(const std::vector<std::string>& words);
