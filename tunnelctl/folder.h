// What is in a folder.
#pragma once

#include <string>
#include <vector>

/// The names of its files and folders, in no order, "." and ".." among them; none of a folder that cannot be read.
std::vector<std::string> namesIn(const std::string& folder);
