// Findings in words and as JSON.
#pragma once

#include <json/value.h>

#include <vector>

#include "tunnelctl/check_findings.h"

/// Grouped by the records of the documents.
void printFindings(const Json::Value& documents, const std::vector<Finding>& findings);

/// An object with the array "findings".
Json::Value jsonOf(const std::vector<Finding>& findings);
