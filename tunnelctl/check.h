// What is wrong with a configuration.
#pragma once

#include <json/value.h>

#include <vector>

#include "tunnelctl/check_findings.h"
#include "tunnelctl/check_rules.h"

/// The findings about documents in the shape of docs/configuration.schema.json, which are an object, in their order.
/// `isForeign` may be empty: then no device of the router is looked for. Pure but for that function; never throws for
/// what a document holds.
std::vector<Finding> findingsOf(const Json::Value& documents, IsForeignDevice isForeign);
