// A plan in words and as JSON.
#pragma once

#include <json/value.h>

#include <string>
#include <vector>

#include "tunnelctl/plan.h"
#include "tunnelctl/plan_files.h"

struct ReportOptions {
  int printLevel = 25;       ///< the log's lines up to this level
  bool showSecrets = false;  ///< keys are shown as they are
};

void printPlan(const Plan& plan, const ReportOptions& options);
Json::Value jsonOf(const Plan& plan, const ReportOptions& options);

/// One line: what would be different from now, and about what it costs.
std::string summaryOf(const Plan& plan, const std::vector<FileChange>& changes);
