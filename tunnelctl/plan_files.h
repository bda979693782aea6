// What a planned run makes of the files.
#pragma once

#include <string>
#include <vector>

#include "tunnelctl/plan.h"

struct FileChange {
  std::string path;
  std::string before;  ///< what is on disk now
  std::string after;
  bool existed = false;
  bool remains = true;  ///< false for one that the run removes and does not write again
};

/// The files that the run writes, and those that it removes, by path. Reads them.
std::vector<FileChange> fileChanges(const Plan& plan);

bool isDifferent(const FileChange& change);
