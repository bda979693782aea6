// What `status` prints.
#pragma once

#include <json/value.h>

#include <string>

#include "tunnelctl/status_rows.h"

/// One screen for people (console.h).
std::string statusText(const Status& status);

/// The object that printJson completes; docs/tunnelctl.md describes it. What is not known is null.
Json::Value statusJson(const Status& status);

/// Metrics in Prometheus' text format, for a textfile collector. What is not known is left out.
std::string statusMetrics(const Status& status);
