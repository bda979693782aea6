// tunnelctl plan: what the next run would do now.
#pragma once

#include <string>
#include <vector>

/// Returns 0 when that run would come to its end, 1 when it would fail or throw. Throws a Complaint where it cannot
/// tell.
int performPlan(const std::vector<std::string>& words);
