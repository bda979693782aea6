// What is in a folder, and in a file.
#pragma once

#include <string>
#include <vector>

/// The names of its files and folders, in no order, "." and ".." among them; none of a folder that cannot be read.
std::vector<std::string> namesIn(const std::string& folder);

/// The contents of a file, "" of one that cannot be read.
std::string contentsOf(const std::string& path);
