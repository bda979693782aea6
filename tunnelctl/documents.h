// The router's configuration, from a file or from the configuration API, as one JSON object in the shape of
// docs/configuration.schema.json.
#pragma once

#include <json/value.h>

#include <string>

/// The object that a file holds; "-" is standard input. Read as strictly as the program reads the API's answers. Throws
/// a Complaint for a file that cannot be read, that is no JSON (with line and column), or no object.
Json::Value readDocuments(const std::string& path);

/// What the configuration API answers to the program's four requests; "wans" is the WAN list. Blocks as long as they
/// take. Throws a Complaint that names the first one that fails.
Json::Value fetchDocuments();
